#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/bluetooth/capture/CaptureReader.h"
#include "platform/foundation/Hex.h"

namespace support {

using platform::Data;
using platform::DataView;

inline Data hex(std::string_view text) {
  return platform::octetsFromHex(text).value();
}
inline Data operator+(Data left, const Data& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}
inline Data number(uint64_t value, int width, bool isBigEndian) {
  Data octets;
  for (int i = 0; i < width; ++i)
    octets.push_back(static_cast<std::byte>(value >> 8 * (isBigEndian ? width - 1 - i : i) & 0xFF));
  return octets;
}
inline Data big(uint64_t value, int width) {
  return number(value, width, true);
}
inline Data little(uint64_t value, int width) {
  return number(value, width, false);
}

/// An LE Advertising Report of C0:00:00:00:00:NN with flags, at -60 dBm: ADV_IND.
inline Data advertisingEvent(uint8_t nn) {
  return hex("3e0f02010001") + little(nn, 5) + hex("c003020106c4");
}
/// The same as an ADV_IND on the air, without access address and CRC.
inline Data advertisingPdu(uint8_t nn) {
  return hex("4009") + little(nn, 5) + hex("c0020106");
}

inline Data btsnoopFile(uint32_t link) {
  return platform::toData(platform::viewOf({"btsnoop\0", 8})) + big(1, 4) + big(link, 4);
}
/// Microseconds since 1970.
inline Data btsnoopRecord(const Data& octets, int64_t time, uint32_t flags = 3) {
  const auto sinceYear0 = static_cast<uint64_t>(time) + 0x00DCDDB30F2F8000;
  return big(octets.size(), 4) + big(octets.size(), 4) + big(flags, 4) + big(0, 4) + big(sinceYear0, 8) +
         octets;
}
inline Data h4(const Data& event) {
  return hex("04") + event;
}

/// Everything that reading a capture gives, a line each.
struct Reading {
  std::vector<std::string> reports;      ///< "TIME ADDRESS RSSI DATA", microseconds since 1970
  std::vector<std::string> diagnostics;  ///< as they are said
  std::string error;                     ///< of opening
};

inline Reading readCapture(DataView octets) {
  Reading reading;
  const auto opened =
      platform::CaptureReader::open(std::make_unique<platform::MemoryByteSource>(octets), "FILE",
                                    [&](const platform::CaptureDiagnostic& diagnostic) {
                                      reading.diagnostics.push_back(diagnostic.line());
                                    });
  if (!opened) reading.error = opened.error().text;
  auto* reader = opened ? opened->get() : nullptr;
  while (reader != nullptr && reader->next() != platform::CaptureReader::Next::end)
    reader->read([&](const platform::AdvertisingReport& report) {
      reading.reports.push_back(std::to_string(report.time.time_since_epoch().count()) + " " +
                                report.address.text() + " " + std::to_string(report.rssi) + " " +
                                platform::hexText(report.data));
    });
  return reading;
}

}  // namespace support
