#include "tools/brenloft/BeaconNames.h"

#include <fmt/format.h>

#include "gateway/Suggestion.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

void addBeaconsOf(std::string_view option, const std::string& text, const Settings& settings,
                  std::vector<BeaconId>& beacons) {
  const std::size_t before = beacons.size();
  std::vector<std::string> names;
  for (const auto& [id, beacon] : settings.beacons) {
    if (beacon.name == text) beacons.push_back(id);
    if (!beacon.name.empty()) names.push_back(beacon.name);
  }
  if (beacons.size() > before) return;
  const auto id = BeaconId::fromText(text);
  if (!id)
    throw Failure(ExitStatus::usage,
                  fmt::format("{}: '{}' is no beacon's name, nor an identifier such as C0-C1-5C-00-00-01{}",
                              option, text, didYouMean(nearest(text, names))));
  beacons.push_back(*id);
}

}  // namespace

std::vector<BeaconId> beaconsFromTexts(std::string_view option, const std::vector<std::string>& texts,
                                       const Settings& settings) {
  std::vector<BeaconId> beacons;
  for (const std::string& text : texts) addBeaconsOf(option, text, settings, beacons);
  return beacons;
}

}  // namespace brenloft
