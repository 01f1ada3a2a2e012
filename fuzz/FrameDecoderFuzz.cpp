#include <cstdlib>

#include "BrenloftSDK/BRLSensorFrame.h"

// A frame decodes exactly when it is long enough, and what it decodes to depends on its first 22 octets only.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const platform::DataView octets = std::as_bytes(std::span(data, size));
  const auto readings = BRLSensorReadings::fromFrame(octets);
  if (readings.has_value() != (size >= kBRLSensorFrameLength)) std::abort();
  if (!readings) return 0;
  if (BRLSensorReadings::fromFrame(octets.first(kBRLSensorFrameLength)) != readings) std::abort();
  if (readings->dictionary().size() != 10) std::abort();
  return 0;
}
