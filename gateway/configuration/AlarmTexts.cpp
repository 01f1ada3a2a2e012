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
  using Quantity = AlarmRule::Quantity;
  const bool isHundredths =
      quantity == Quantity::temperature || quantity == Quantity::humidity || quantity == Quantity::dewPoint;
  return isHundredths ? fmt::format("{:.2f}", value / 100.0) : std::to_string(value);
}

}  // namespace brenloft
