#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "gateway/configuration/AlarmRule.h"

namespace brenloft {

/// As a settings file writes it: "dew-point", "silent".
std::string_view textOf(AlarmRule::Quantity quantity);
/// "info", "warning", "critical"
std::string_view textOf(AlarmRule::Severity severity);
/// In the unit that a settings file has: "8.25", "-80".
std::string valueText(AlarmRule::Quantity quantity, int32_t value);

}  // namespace brenloft
