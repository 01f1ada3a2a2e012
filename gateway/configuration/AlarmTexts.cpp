#include "gateway/configuration/AlarmTexts.h"

#include <fmt/format.h>

namespace brenloft {

std::string_view textOf(AlarmRule::Quantity quantity) {
  constexpr std::string_view kTexts[] = {"temperature", "humidity",  "dew-point", "battery",
                                         "rssi",        "emergency", "silent"};
  return kTexts[static_cast<std::size_t>(quantity)];
}

std::string_view textOf(AlarmRule::Severity severity) {
  constexpr std::string_view kTexts[] = {"info", "warning", "critical"};
  return kTexts[static_cast<std::size_t>(severity)];
}

std::string valueText(AlarmRule::Quantity quantity, int32_t value) {
  switch (quantity) {
    case AlarmRule::Quantity::temperature:
    case AlarmRule::Quantity::humidity:
    case AlarmRule::Quantity::dewPoint:
      return fmt::format("{:.2f}", value / 100.0);
    default:
      return std::to_string(value);
  }
}

}  // namespace brenloft
