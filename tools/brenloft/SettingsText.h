#pragma once

#include <string>
#include <string_view>

namespace brenloft {

/// A right settings file as it is in force: each value with its line, and what holds of beacons and alarms
/// without one, as a comment. It is a settings file itself.
std::string settingsText(std::string_view file);

}  // namespace brenloft
