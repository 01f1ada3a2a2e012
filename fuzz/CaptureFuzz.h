#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluetooth/capture/CaptureReader.h"

namespace fuzz {

using Magics = std::vector<std::string_view>;

inline Magics btsnoopMagics() {
  return {{"btsnoop\0", 8}};
}
inline Magics pcapMagics() {
  return {"\xA1\xB2\xC3\xD4", "\xD4\xC3\xB2\xA1", "\xA1\xB2\x3C\x4D", "\x4D\x3C\xB2\xA1"};
}
inline Magics pcapngMagics() {
  return {"\x0A\x0D\x0D\x0A"};
}

/// Reads a capture of one format to its end. Each record may have one fault, and every octet of the reports
/// is looked at.
inline int readCapture(const Magics& magics, const uint8_t* octets, std::size_t count) {
  const auto input = std::as_bytes(std::span(octets, count));
  bool isOfFormat = false;
  for (const std::string_view magic : magics)
    isOfFormat = isOfFormat || platform::textOf(input).starts_with(magic);
  if (!isOfFormat) return -1;
  uint64_t faulty = 0;
  const auto opened =
      platform::CaptureReader::open(std::make_unique<platform::MemoryByteSource>(input), "input",
                                    [&](const platform::CaptureDiagnostic& diagnostic) {
                                      if (diagnostic.record <= faulty || diagnostic.text.empty())
                                        std::abort();
                                      faulty = diagnostic.record;
                                    });
  if (!opened && opened.error().text.empty()) std::abort();
  auto* reader = opened ? opened->get() : nullptr;
  unsigned sum = 0;
  while (reader && reader->next() != platform::CaptureReader::Next::end)
    reader->read([&](const platform::AdvertisingReport& report) {
      for (const std::byte octet : report.data) sum += std::to_integer<unsigned>(octet);
    });
  return sum == UINT32_MAX ? -1 : 0;  // depends on every octet, so that each is read
}

}  // namespace fuzz
