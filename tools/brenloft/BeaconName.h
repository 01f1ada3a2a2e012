#pragma once

#include <string>

#include "gateway/configuration/Settings.h"

namespace brenloft {

/// The beacon that a command line names, by its name in the settings or its identifier. Throws `Failure`,
/// which begins with the option's name, where it is neither.
BeaconId beaconNamed(const Settings& settings, const char* option, const std::string& text);

}  // namespace brenloft
