#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenloft {

/// What a rule judges. The history keeps these numbers.
enum class AlarmQuantity : uint8_t {
  temperature = 0,
  humidity = 1,
  dewPoint = 2,
  battery = 3,
  rssi = 4,
  emergency = 5,
  silence = 6,
};
enum class AlarmSeverity : uint8_t { info = 0, warning = 1, critical = 2 };

/// What a rule says of an event that it made. Values are in the quantity's own unit: hundredths of a degree
/// or of a percent, dBm, or as sent; of silence in seconds.
struct AlarmFacts {
  AlarmSeverity severity = AlarmSeverity::warning;
  AlarmQuantity quantity = AlarmQuantity::temperature;
  std::optional<int32_t> value{};      ///< what raised or cleared it; none for silence
  std::optional<int32_t> threshold{};  ///< the limit that was passed; none for an emergency
  std::string text{};                  ///< what people are to know or to do

  friend bool operator==(const AlarmFacts&, const AlarmFacts&) = default;
};

/// As a settings file writes it: "dew-point", "silent".
std::string_view textOf(AlarmQuantity quantity);
/// "info", "warning", "critical"
std::string_view textOf(AlarmSeverity severity);
/// In the unit that a settings file has: "8.25", "-80".
std::string valueText(AlarmQuantity quantity, int32_t value);

}  // namespace brenloft
