#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "gateway/configuration/Settings.h"

namespace brenloft {

/// What the file alone does not tell, a line each: programs of alarms that cannot be run.
std::vector<std::string> missingPrograms(const Settings& settings);
/// Commands that hear only beacons that are described here, where none is.
std::vector<std::string> nobodyKnown(const Settings& settings);
/// Alarms for a beacon that the settings do not describe and that this container's history has never heard:
/// most often a misspelt identifier.
std::vector<std::string> unknownBeacons(const Settings& settings, const std::filesystem::path& container);

}  // namespace brenloft
