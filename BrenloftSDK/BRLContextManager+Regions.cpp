#include <algorithm>
#include <cctype>
#include <string>
#include <utility>

#include "BrenloftSDK/BRLContextManager.h"
#include "platform/Platform.h"
#include "platform/foundation/NSLog.h"

// The iBeacon search up to the start of ranging: authorization, regions and their states.

namespace {

using platform::CLAuthorizationStatus;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using platform::CLLocationManager;
using platform::CLRegion;
using platform::CLRegionPtr;
using platform::CLRegionState;
using platform::NSLog;
using platform::NSNumber;
using platform::NSUUID;
using platform::Platform;

CLBeaconRegionPtr asBeaconRegion(const CLRegionPtr& region) {
  return std::dynamic_pointer_cast<const CLBeaconRegion>(region);
}

// CONTAINS[c] for the ASCII letters that UUID texts have.
bool containsIgnoringCase(const std::string& text, const std::string& part) {
  const auto equal = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), equal) != text.end();
}

// What a region must have to count as a duplicate: "proximityUUID.UUIDString CONTAINS[c] %@", then
// "&& major = %ld", then "&& minor = %ld". A region without the number does not have it.
struct RegionPredicate {
  std::string uuidText;
  std::optional<int64_t> major;
  std::optional<int64_t> minor;

  bool matches(const CLBeaconRegion& region) const {
    return containsIgnoringCase(region.proximityUUID().UUIDString(), uuidText) &&
           (!major || (region.major() && *region.major() == *major)) &&
           (!minor || (region.minor() && *region.minor() == *minor));
  }

  template <typename Regions>
  bool matchesAny(const Regions& regions) const {
    return std::any_of(regions.begin(), regions.end(), [this](const auto& r) { return matches(*r); });
  }
};

void remember(std::vector<std::weak_ptr<const CLRegion>>& regions,
              const std::weak_ptr<const CLRegion>& region) {
  std::erase_if(regions, [](const auto& known) { return known.expired(); });
  regions.push_back(region);
}

std::string numberText(auto number) {
  return std::to_string(static_cast<int64_t>(number));
}

}  // namespace

void BRLContextManager::BeaconStart() {
  passLocationGate([] { return true; });
}

void BRLContextManager::updateMonitoring() {
  submitRegions([] { return true; });
}

void BRLContextManager::passLocationGate(const Condition& isWanted) {
  const auto& service = *Platform::installed().location;
  // Deliberately in this sense: the message stands when services are on.
  if (service.locationServicesEnabled()) NSLog("위치서비스가 불가능합니다.");
  NSLog("로케이션 서비스 허가");
  switch (service.authorizationStatus()) {
    case CLAuthorizationStatus::authorizedAlways:
    case CLAuthorizationStatus::authorizedWhenInUse:
      submitRegions(isWanted);
      NSLog("되었습니다.");
      NSLog("모니터링 중인 Region 개수:(" + numberText(locationManager_->monitoredRegions().size()) + ")");
      return;
    case CLAuthorizationStatus::notDetermined:
      NSLog("여부를 아직 확인하지 않았습니다.");
      if (locationManager_->respondsToRequestAlwaysAuthorization()) {
        locationManager_->requestAlwaysAuthorization();
      } else {
        locationManager_->startMonitoringSignificantLocationChanges();
      }
      return;
    case CLAuthorizationStatus::denied:
      NSLog("가 거부되었습니다.");
      return;
    default:
      NSLog("예외상황");
      return;
  }
}

void BRLContextManager::submitRegions(const Condition& isWanted) {
  const auto text = beaconUUID();
  if (!text) {
    NSLog("UUID가 등록되지 않아 센서를 모니터링 할 수 없습니다.");
    return;
  }
  const auto uuid = NSUUID::initWithUUIDString(*text);
  if (!uuid) {
    NSLog("데이터 오류 UUID가 올바른지 확인해주십시오\n UUID:" + *text);
    return;
  }
  const std::scoped_lock lock(regionsMutex_);
  if (isWanted()) addMissingRegions(*uuid, *text);
}

void BRLContextManager::addMissingRegions(const NSUUID& uuid, const std::string& text) {
  const int64_t major = beaconMajor_;
  const int64_t minor = beaconMinor_;
  // A region holds the low 16 bits; the duplicate test compares the whole number.
  const auto regionMajor = static_cast<uint16_t>(major);
  const auto regionMinor = static_cast<uint16_t>(minor);

  std::vector<CLBeaconRegionPtr> existing;
  for (const auto& region : locationManager_->monitoredRegions()) {
    if (auto beaconRegion = asBeaconRegion(region)) existing.push_back(std::move(beaconRegion));
  }
  std::vector<std::shared_ptr<CLBeaconRegion>> added;
  const auto addUnlessMatched = [&](const RegionPredicate& predicate, auto... numbers) {
    if (predicate.matchesAny(existing) || predicate.matchesAny(added)) return;
    added.push_back(std::make_shared<CLBeaconRegion>(uuid, numbers..., kBRLBeaconRegionID));
  };

  const int64_t group = beaconGroupType_;
  if (group == 0) addUnlessMatched({text, std::nullopt, std::nullopt});
  if (group == 1) addUnlessMatched({text, major, std::nullopt}, regionMajor);
  if (group == 1 || group == 2) addUnlessMatched({text, major, minor}, regionMajor, regionMinor);

  for (const auto& region : added) {
    region->setNotifyEntryStateOnDisplay(false);
    region->setNotifyOnEntry(true);
    region->setNotifyOnExit(true);
    remember(submittedRegions_, region);
    locationManager_->startMonitoringForRegion(region);
  }
}

// A callback that has begun already may still hold one of these regions, or one that another has replaced.
void BRLContextManager::endRegions() {
  const std::scoped_lock lock(regionsMutex_);
  isStart_ = false;
  const auto regions = locationManager_->monitoredRegions();
  for (const auto& region : regions) locationManager_->stopRangingBeaconsInRegion(region);
  for (const auto& region : regions) locationManager_->stopMonitoringForRegion(region);
  for (const auto& region : regions) remember(endedRegions_, region);
  for (const auto& region : std::exchange(submittedRegions_, {})) remember(endedRegions_, region);
}

bool BRLContextManager::hasEnded(const CLRegionPtr& region) const {
  const auto isRegion = [&](const auto& ended) { return ended.lock() == region; };
  if (std::ranges::none_of(endedRegions_, isRegion)) return false;
  const auto monitored = locationManager_->monitoredRegions();
  return std::ranges::find(monitored, region) == monitored.end();
}

void BRLContextManager::locationManager_didChangeAuthorizationStatus(CLLocationManager& /*manager*/,
                                                                     int32_t status) {
  NSLog("위치정보 허가상태가 변경되었습니다." + std::to_string(status));
  if (status != static_cast<int32_t>(CLAuthorizationStatus::authorizedAlways)) {
    NSLog("로케이션 서비스가 중지되었습니다. 유저 권한 문제일 가능성이 높습니다");
    return;
  }
  requestStates();
  if (beaconType_ == kBRLIBeacon && isStart_) submitRegions([this] { return isStart_.load(); });
}

void BRLContextManager::requestStates() {
  const std::scoped_lock lock(regionsMutex_);
  for (const auto& region : locationManager_->monitoredRegions()) {
    locationManager_->requestStateForRegion(region);
  }
}

void BRLContextManager::locationManager_didStartMonitoringForRegion(CLLocationManager& manager,
                                                                    const CLRegionPtr& region) {
  NSLog("didStartMonitoringForRegion:" + numberText(manager.monitoredRegions().size()) + ":" +
        region->description());
  const std::scoped_lock lock(regionsMutex_);
  if (!hasEnded(region)) locationManager_->requestStateForRegion(region);
}

void BRLContextManager::locationManager_didDetermineState_forRegion(CLLocationManager& /*manager*/,
                                                                    CLRegionState state,
                                                                    const CLRegionPtr& region) {
  NSLog("-[BRLContextManager locationManager:didDetermineState:forRegion:]:" + region->identifier() + ":" +
        numberText(state));
  if (region->identifier() == SAFETY_REGION_IDENTIFIER) {
    determinedSafetyState(state, region);
    return;
  }
  const auto beaconRegion = asBeaconRegion(region);
  if (beaconRegion && startRanging(beaconRegion) && state == CLRegionState::outside) leaveRegion();
}

bool BRLContextManager::startRanging(const CLBeaconRegionPtr& region) {
  const std::scoped_lock lock(regionsMutex_);
  if (hasEnded(region)) return false;
  locationManager_->startRangingBeaconsInRegion(
      std::make_shared<CLBeaconRegion>(region->proximityUUID(), kBRLBeaconRegionID));
  return true;
}

void BRLContextManager::determinedSafetyState(CLRegionState state, const CLRegionPtr& region) {
  if (state == CLRegionState::outside) submitRegions([&] { return !hasEnded(region); });
  Platform::installed().userDefaults->setObject_forKey(NSNumber(static_cast<int64_t>(state)),
                                                       SAFETY_REGION_IDENTIFIER);
}

void BRLContextManager::leaveRegion() {
  for (const Record& record : rangeBeaconSensors_.view()) {
    if (record->markLost() && reportBeacon(record) && isLogSave()) loggingForSensor(*record);
  }
}

void BRLContextManager::locationManager_monitoringDidFailForRegion_withError(CLLocationManager& /*manager*/,
                                                                             const CLRegionPtr& region,
                                                                             const platform::CLError& error) {
  NSLog("monitoringDidFailForRegion:" + (region ? region->description() : "(null)") + ":" +
        error.description);
  for (const auto& monitored : locationManager_->monitoredRegions()) {
    NSLog("monitored Region:" + monitored->description());
  }
  NSLog("end.");
}

void BRLContextManager::locationManager_didFailWithError(CLLocationManager& /*manager*/,
                                                         const platform::CLError& /*error*/) {
  NSLog("-[BRLContextManager locationManager:didFailWithError:]");
}

// Entry and exit are handled through the state that comes with them.
void BRLContextManager::locationManager_didEnterRegion(CLLocationManager&, const CLRegionPtr&) {}
void BRLContextManager::locationManager_didExitRegion(CLLocationManager&, const CLRegionPtr&) {}
