#include <cstddef>
#include <cstdint>

#include "fuzz/CaptureFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, std::size_t count) {
  return fuzz::readCapture(fuzz::pcapMagics(), octets, count);
}
