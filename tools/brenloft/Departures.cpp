#include "tools/brenloft/Departures.h"

namespace brenloft {

using platform::BeaconLocationService;

std::vector<Departures::Change> Departures::ranged(platform::Date time, const BRLRecordList& records) {
  if (!lastReport_ || time - *lastReport_ >= 2 * BeaconLocationService::kRangingPeriod)
    listeningSince_ = time;
  lastReport_ = time;
  const bool canTell = time - listeningSince_ >= silence_;
  std::vector<Change> changes;
  for (const auto& beacon : records.view()) {
    const auto reported = beacon->statusUpdatedDate();
    if (beacon->beaconType() != kBRLIBeacon || beacon->status() != kBRLPresent || !reported) continue;
    const auto missing = std::chrono::round<std::chrono::seconds>(time - *reported);
    // Its last report was still of a frame from before.
    const auto silence =
        missing + BeaconLocationService::kRangingMemory - BeaconLocationService::kRangingPeriod;
    if (missing.count() == 0) {
      if (left_.erase(beacon.get()) != 0) changes.push_back({beacon, false});
    } else if (canTell && silence >= silence_ && left_.insert(beacon.get()).second) {
      changes.push_back({beacon, true});
    }
  }
  return changes;
}

}  // namespace brenloft
