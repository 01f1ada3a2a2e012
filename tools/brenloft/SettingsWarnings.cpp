#include "tools/brenloft/SettingsWarnings.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

// Of these.
std::vector<BeaconId> beaconsHeardIn(const std::filesystem::path& folder,
                                     const std::vector<BeaconId>& beacons) {
  std::vector<BeaconId> heard;
  const auto reader = HistoryReader::open(folder / kHistoryFileName);
  if (!reader) return heard;
  if (const auto latest = (*reader)->latest(0, beacons))
    for (const HistoryBeacon& one : *latest) heard.push_back(one.beacon);
  return heard;
}

}  // namespace

std::vector<std::string> missingPrograms(const Settings& settings) {
  std::vector<std::string> lines;
  for (const AlarmRule& rule : settings.alarms) {
    if (rule.exec.empty() || ::faccessat(AT_FDCWD, rule.exec.front().c_str(), X_OK, AT_EACCESS) == 0)
      continue;
    lines.push_back(fmt::format("warning: alarm \"{}\": {} cannot be run: {}", rule.name, rule.exec.front(),
                                std::generic_category().message(errno)));
  }
  return lines;
}

std::vector<std::string> nobodyKnown(const Settings& settings) {
  std::vector<std::string> lines;
  if (!settings.beacons.empty()) return lines;
  for (const auto& [command, options] : settings.options)
    for (const OptionSetting& option : options)
      if (option.option == "only" && option.words == std::vector<std::string>{"known"})
        lines.push_back(fmt::format(
            "warning: only = \"known\", for {}: no [beacon.\"…\"] stands here, so nothing is kept", command));
  return lines;
}

std::vector<std::string> unknownBeacons(const Settings& settings, const std::filesystem::path& container) {
  std::vector<std::string> lines;
  const std::filesystem::path folder = folderOfContainer(container);
  std::vector<BeaconId> meant;
  for (const AlarmRule& rule : settings.alarms)
    if (rule.beacon) meant.push_back(*rule.beacon);
  const std::vector<BeaconId> heard = beaconsHeardIn(folder, meant);
  for (const AlarmRule& rule : settings.alarms)
    if (rule.beacon && settings.beacon(*rule.beacon) == nullptr &&
        std::ranges::find(heard, *rule.beacon) == heard.end())
      lines.push_back(
          fmt::format("warning: alarm \"{}\": no [beacon.\"{}\"] stands here, and the history in {} "
                      "has never heard it",
                      rule.name, rule.beacon->text(), folder.string()));
  return lines;
}

}  // namespace brenloft
