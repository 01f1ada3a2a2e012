#include "gateway/AlarmFacts.h"

#include <fmt/format.h>

namespace brenloft {

std::string_view textOf(AlarmQuantity quantity) {
  constexpr std::string_view kTexts[] = {"temperature", "humidity",  "dew-point", "battery",
                                         "rssi",        "emergency", "silent"};
  return kTexts[static_cast<std::size_t>(quantity)];
}

std::string_view textOf(AlarmSeverity severity) {
  constexpr std::string_view kTexts[] = {"info", "warning", "critical"};
  return kTexts[static_cast<std::size_t>(severity)];
}

std::string valueText(AlarmQuantity quantity, int32_t value) {
  switch (quantity) {
    case AlarmQuantity::temperature:
    case AlarmQuantity::humidity:
    case AlarmQuantity::dewPoint:
      return fmt::format("{:.2f}", value / 100.0);
    default:
      return std::to_string(value);
  }
}

}  // namespace brenloft
