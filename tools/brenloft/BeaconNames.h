#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "gateway/configuration/LiveSettings.h"

namespace brenloft {

/// The beacons that an option chooses, each by its name in the settings or its identifier. Throws `Failure`,
/// which begins with the option's name, where one is neither. `words` are what it takes beside them.
std::vector<BeaconId> beaconsFromTexts(std::string_view option, const std::vector<std::string>& texts,
                                       const LiveSettings& settings,
                                       const std::vector<std::string>& words = {});

}  // namespace brenloft
