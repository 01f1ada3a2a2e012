#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSUUID.h"

namespace platform {

/// What an iBeacon says in its manufacturer-specific data: company identifier 0x004C (little-endian), type
/// 0x02, length 0x15, proximity UUID, major and minor (big-endian), measured power.
struct iBeaconFrame {
  NSUUID proximityUUID{};
  uint16_t major = 0;
  uint16_t minor = 0;
  int8_t measuredPower = -59;  ///< dBm at one metre

  friend auto operator<=>(const iBeaconFrame&, const iBeaconFrame&) = default;
};

/// Reads manufacturer data that begins with the company identifier; octets after the frame are ignored.
/// Nothing when it is not an iBeacon frame, or ends too early.
BRL_EXPORT std::optional<iBeaconFrame> parseIBeaconFrame(DataView manufacturerData);

/// Whether manufacturer data is that of iBeacons and Apple's devices: an iBeacon frame, or the company
/// identifier and then nothing but messages, each with its type and length. The identifier alone would not
/// tell: where it stands, a sensor frame has its temperature.
BRL_EXPORT bool holdsAppleMessages(DataView manufacturerData);

/// The 25 octets of manufacturer data, the company identifier first.
BRL_EXPORT Data iBeaconManufacturerData(const iBeaconFrame& frame);

}  // namespace platform
