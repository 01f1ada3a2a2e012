#include "tools/brenloft/BeaconNames.h"

#include <system_error>

#include <fmt/format.h>

#include "platform/foundation/Suggestion.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

// A name that is not found most often stands in another file than the one that was read.
std::string noBeaconText(const std::string& text, const LiveSettings& settings,
                         std::vector<std::string> names) {
  const std::string file = settings.file().string();
  std::error_code unknown;
  if (!std::filesystem::exists(settings.file(), unknown))
    return fmt::format(
        "'{}' is not an identifier such as C0-C1-5C-00-00-01, and no beacon has a name: there is no {}; "
        "--config "
        "names another file{}",
        text, file, platform::didYouMean(platform::nearest(text, names)));
  const auto current = settings.current();
  for (const auto& [id, beacon] : current->beacons)
    if (!beacon.name.empty()) names.push_back(beacon.name);
  return fmt::format("'{}' is not a beacon's name in {}, nor an identifier such as C0-C1-5C-00-00-01{}", text,
                     file, platform::didYouMean(platform::nearest(text, names)));
}

}  // namespace

std::vector<BeaconId> beaconsFromTexts(std::string_view option, const std::vector<std::string>& texts,
                                       const LiveSettings& settings, const std::vector<std::string>& words) {
  const auto current = settings.current();
  std::vector<BeaconId> beacons;
  for (const std::string& text : texts) {
    const std::size_t before = beacons.size();
    for (const auto& [id, beacon] : current->beacons)
      if (beacon.name == text) beacons.push_back(id);
    if (beacons.size() > before) continue;
    const auto id = BeaconId::fromText(text);
    if (!id)
      throw Failure(ExitStatus::usage, fmt::format("{}: {}", option, noBeaconText(text, settings, words)));
    beacons.push_back(*id);
  }
  return beacons;
}

}  // namespace brenloft
