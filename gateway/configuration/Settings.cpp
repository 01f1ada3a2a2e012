#include "gateway/configuration/Settings.h"

#include <algorithm>

namespace brenloft {

const BeaconSettings* Settings::beacon(const BeaconId& id) const {
  const auto found = beacons.find(id);
  return found == beacons.end() ? nullptr : &found->second;
}

std::vector<BeaconId> Settings::named() const {
  std::vector<BeaconId> named;
  for (const auto& [id, known] : beacons) named.push_back(id);
  for (const AlarmRule& rule : alarms)
    if (rule.beacon) named.push_back(*rule.beacon);
  return named;
}

const std::string& Settings::nameOf(const BeaconId& id) const {
  const BeaconSettings* known = beacon(id);
  return known && !known->name.empty() ? known->name : id.text();
}

Label Settings::labelOf(const BeaconId& id) const {
  const BeaconSettings* known = beacon(id);
  return known ? Label{known->name, known->place} : Label{};
}

const AlarmRule* Settings::alarm(const std::string& name) const {
  const auto found = std::ranges::find(alarms, name, &AlarmRule::name);
  return found == alarms.end() ? nullptr : &*found;
}

}  // namespace brenloft
