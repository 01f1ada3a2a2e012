#include "tools/brenloft/BeaconName.h"

#include <vector>

#include <fmt/format.h>

#include "gateway/Suggestion.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

BeaconId beaconNamed(const Settings& settings, const char* option, const std::string& text) {
  std::vector<std::string> names;
  for (const auto& [id, beacon] : settings.beacons) {
    if (beacon.name == text) return id;
    if (!beacon.name.empty()) names.push_back(beacon.name);
  }
  if (const auto id = BeaconId::fromText(text)) return *id;
  throw Failure(ExitStatus::usage,
                fmt::format("{}: '{}' is no beacon's name, nor an identifier such as C0-C1-5C-00-00-01{}",
                            option, text, didYouMean(nearest(text, names))));
}

}  // namespace brenloft
