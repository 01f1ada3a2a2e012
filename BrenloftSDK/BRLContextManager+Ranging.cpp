#include "BrenloftSDK/BRLContextManager.h"

// Ranging reports into records.

namespace {

using platform::CLBeacon;
using platform::NSNumber;

std::optional<BRLRecordList::Identity> identityOf(int64_t groupType) {
  switch (groupType) {
    case 0:
      return BRLRecordList::Identity::uuid;
    case 1:
      return BRLRecordList::Identity::uuidAndMajor;
    case 2:
      return BRLRecordList::Identity::uuidMajorAndMinor;
    default:
      return std::nullopt;
  }
}

}  // namespace

void BRLContextManager::locationManager_didRangeBeacons_inRegion(
    platform::CLLocationManager& /*manager*/, const std::vector<CLBeacon>& beacons,
    const platform::CLBeaconRegionPtr& /*region*/) {
  if (beacons.empty()) return;
  std::string uuid;
  std::optional<BRLHashedText> key;
  const CLBeacon* previous = nullptr;
  for (const CLBeacon& beacon : beacons) {
    if (previous == nullptr || beacon.proximityUUID != previous->proximityUUID) {
      uuid = beacon.proximityUUID.UUIDString();
      key.emplace(uuid);
    }
    previous = &beacon;
    if (!refreshRanged(beacon, *key)) addRangedBeacon(beacon, uuid);
  }
  reportRanged();
}

// Every record that stands for the beacon is refreshed. The grouping mode is read anew for each comparison: a
// delegate may change it on the way.
bool BRLContextManager::refreshRanged(const CLBeacon& beacon, const BRLHashedText& uuid) {
  const auto known = rangeBeaconSensors_.view();
  bool matched = false;
  for (size_t next = 0; next < known.size();) {
    const auto identity = identityOf(beaconGroupType_);
    if (!identity) break;
    const auto match =
        rangeBeaconSensors_.find(*identity, uuid, beacon.major, beacon.minor, next, known.size());
    if (!match) break;
    const Record& record = known[match->number];
    record->refresh(dispatch_->date(), beacon.rssi);
    if (record->markPresent()) {
      reportBeacon(record);
      if (isLogSave()) loggingForSensor(*record);
    }
    matched = true;
    if (match->isLast && identityOf(beaconGroupType_) == identity) break;
    next = match->number + 1;
  }
  return matched;
}

void BRLContextManager::addRangedBeacon(const CLBeacon& beacon, const std::string& uuid) {
  const auto record = std::make_shared<BRLBeaconDataModel>(platform::Dictionary{
      {"beaconType", NSNumber(kBRLIBeacon)},
      {"beaconId", "iBeacon"},
      {"uuid", uuid},
      {"major", NSNumber(beacon.major)},
      {"minor", NSNumber(beacon.minor)},
      {"rssi", NSNumber(beacon.rssi)},
      {"status", NSNumber(kBRLPresent)},
      {"statusUpdatedDate", dispatch_->date()},
  });
  reportBeacon(record);
  appendBeacon(record);
  if (isLogSave()) loggingForSensor(*record);
}
