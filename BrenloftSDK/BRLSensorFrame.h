#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/Value.h"

/// The frame is the first 22 octets of the manufacturer-specific data, from where a company identifier would
/// stand: temperature and humidity little-endian in hundredths, txPower, battery, emergency, the six-octet
/// identifier, three accelerations big-endian, three octets that are only carried.
inline constexpr size_t kBRLSensorFrameLength = 22;

/// The ten readings of one sensor frame. What a person reads is text, the one-octet readings are numbers.
struct BRL_EXPORT BRLSensorReadings {
  std::string uniqueId{};     ///< XX-XX-XX-XX-XX-XX
  uint32_t txPower = 0;       ///< 0 to 255, not sign-extended
  std::string temperature{};  ///< two decimals, -327.68 to 327.67; "" when the raw value is 0
  std::string humidity{};     ///< two decimals, 0.01 to 655.35; "" when the raw value is 0
  uint32_t battery = 0;       ///< 0 to 255
  uint32_t emergency = 0;     ///< 0 to 255; 1 or more signals an emergency
  std::string tbd{};          ///< six upper-case hexadecimal digits
  std::string xAccel{};       ///< -32768 to 32767
  std::string yAccel{};
  std::string zAccel{};

  /// Decodes a frame; octets after the 22nd are ignored, a shorter value gives nothing. Pure; any thread.
  static std::optional<BRLSensorReadings> fromFrame(platform::DataView manufacturerData);
  /// The readings under their ten keys.
  platform::Dictionary dictionary() const;

  friend bool operator==(const BRLSensorReadings&, const BRLSensorReadings&) = default;
};
