#pragma once

#include <array>
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

struct BRLSensorReadings;

/// One frame as it was sent; each reading is worked out when it is asked for.
class BRL_EXPORT BRLSensorFrame {
 public:
  /// Octets after the 22nd are ignored, a shorter value gives nothing.
  static std::optional<BRLSensorFrame> of(platform::DataView manufacturerData);

  /// The readings as BRLSensorReadings has them.
  std::string uniqueId() const;
  uint32_t txPower() const { return octetAt(4); }
  std::string temperature() const;
  std::string humidity() const;
  uint32_t battery() const { return octetAt(5); }
  uint32_t emergency() const { return octetAt(6); }
  std::string tbd() const;
  std::string xAccel() const;
  std::string yAccel() const;
  std::string zAccel() const;
  BRLSensorReadings readings() const;

  /// The same as numbers. A beacon that measures no temperature or no humidity sends 0.
  int16_t temperatureInHundredths() const { return static_cast<int16_t>(littleEndianAt(0)); }
  uint16_t humidityInHundredths() const { return littleEndianAt(2); }
  int16_t xAcceleration() const { return bigEndianAt(13); }
  int16_t yAcceleration() const { return bigEndianAt(15); }
  int16_t zAcceleration() const { return bigEndianAt(17); }

 private:
  BRLSensorFrame() = default;
  uint8_t octetAt(std::size_t offset) const { return std::to_integer<uint8_t>(octets_[offset]); }
  uint16_t littleEndianAt(std::size_t offset) const;
  int16_t bigEndianAt(std::size_t offset) const;

  std::array<std::byte, kBRLSensorFrameLength> octets_{};
};

/// The ten readings of one sensor frame. The readings of one octet are numbers, the others are texts.
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
