#include "platform/location/BeaconLocationService.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/location/BeaconLocationCore.h"

namespace platform {
namespace {

bool isSameRanging(const CLBeaconRegion& a, const CLBeaconRegion& b) {
  return a.identifier() == b.identifier() && a.proximityUUID() == b.proximityUUID();
}

}  // namespace

std::shared_ptr<BeaconLocationService> makeBeaconLocationService(BeaconLocationOptions options) {
  return std::make_shared<BeaconLocationCore>(std::move(options));
}

BeaconLocationCore::BeaconLocationCore(BeaconLocationOptions options)
    : options_(std::move(options)),
      authorization_(options_.authorization),
      enabled_(options_.locationServicesEnabled) {}

BeaconLocationCore::~BeaconLocationCore() {
  central_.reset();
  if (checkTimer_) checkTimer_->cancel();
  if (tickTimer_) tickTimer_->cancel();
}

bool BeaconLocationCore::locationServicesEnabled() const {
  const std::scoped_lock lock(mutex_);
  return enabled_;
}

CLAuthorizationStatus BeaconLocationCore::authorizationStatus() const {
  const std::scoped_lock lock(mutex_);
  return authorization_;
}

std::unique_ptr<CLLocationManager> BeaconLocationCore::makeLocationManager() {
  auto manager = std::make_unique<BeaconLocationManager>(shared_from_this());
  const std::scoped_lock lock(mutex_);
  managers_.push_back(manager.get());
  postAuthorization(*manager);
  return manager;
}

void BeaconLocationCore::remove(BeaconLocationManager& manager) {
  const std::scoped_lock lock(mutex_);
  std::erase(managers_, &manager);
  updateRangedUUIDs();
  refresh();
}

// ---- Authorization

bool BeaconLocationCore::isAllowed() const {
  return enabled_ && (authorization_ == CLAuthorizationStatus::authorizedAlways ||
                      authorization_ == CLAuthorizationStatus::authorizedWhenInUse);
}

void BeaconLocationCore::setAuthorizationStatus(CLAuthorizationStatus status) {
  const std::scoped_lock changing(changeMutex_);
  changeAuthorization(status);
}

void BeaconLocationCore::changeAuthorization(CLAuthorizationStatus status) {
  {
    const std::scoped_lock lock(mutex_);
    if (authorization_ == status) return;
    authorization_ = status;
    if (!isAllowed()) presence_.forget();
    for (BeaconLocationManager* manager : managers_) postAuthorization(*manager);
    refresh();
  }
  if (options_.storeAuthorization) options_.storeAuthorization(status);
}

void BeaconLocationCore::setLocationServicesEnabled(bool enabled) {
  const std::scoped_lock lock(mutex_);
  enabled_ = enabled;
  if (!isAllowed()) presence_.forget();
  refresh();
}

void BeaconLocationCore::requestAuthorization() {
  const std::scoped_lock changing(changeMutex_);
  if (options_.answerToRequest && authorizationStatus() == CLAuthorizationStatus::notDetermined)
    changeAuthorization(*options_.answerToRequest);
}

void BeaconLocationCore::postAuthorization(BeaconLocationManager& manager) {
  options_.dispatch->mainQueue()->async(
      [gate = manager.gate(), &manager, status = static_cast<int32_t>(authorization_)] {
        gate->call([&](CLLocationManagerDelegate& delegate) {
          delegate.locationManager_didChangeAuthorizationStatus(manager, status);
        });
      });
}

// ---- Monitoring and ranging

std::vector<CLRegionPtr> BeaconLocationCore::monitoredRegions() const {
  const std::scoped_lock lock(mutex_);
  return presence_.regions();
}

void BeaconLocationCore::startMonitoring(BeaconLocationManager& manager, const CLRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  if (!presence_.addRegion(region)) {
    post(manager, {}, [region](auto& reporter, auto& delegate) {
      const CLError error{kRegionMonitoringFailure, "more than 20 regions cannot be monitored"};
      delegate.locationManager_monitoringDidFailForRegion_withError(reporter, region, error);
    });
    return;
  }
  post(manager, whileMonitored(region), [region](auto& reporter, auto& delegate) {
    delegate.locationManager_didStartMonitoringForRegion(reporter, region);
  });
  refresh();
}

void BeaconLocationCore::stopMonitoring(const CLRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  presence_.removeRegion(region->identifier());
  refresh();
}

void BeaconLocationCore::requestState(BeaconLocationManager& manager, const CLRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  // An answer that outlives the monitoring would let the asker begin what its stop was to end.
  post(manager, presence_.isMonitored(region) ? whileMonitored(region) : Condition{},
       [region, state = presence_.state(region, options_.dispatch->now())](auto& reporter, auto& delegate) {
         delegate.locationManager_didDetermineState_forRegion(reporter, state, region);
       });
}

void BeaconLocationCore::startRanging(BeaconLocationManager& manager, const CLBeaconRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(manager.ranged, [&](const CLBeaconRegionPtr& old) { return isSameRanging(*old, *region); });
  manager.ranged.push_back(region);
  updateRangedUUIDs();
  refresh();
}

void BeaconLocationCore::stopRanging(BeaconLocationManager& manager, const CLRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  const auto* beaconRegion = dynamic_cast<const CLBeaconRegion*>(region.get());
  std::erase_if(manager.ranged, [&](const CLBeaconRegionPtr& old) {
    return old->identifier() == region->identifier() ||
           (beaconRegion != nullptr && old->proximityUUID() == beaconRegion->proximityUUID());
  });
  updateRangedUUIDs();
  refresh();
}

bool BeaconLocationCore::isRanging() const {
  return std::ranges::any_of(managers_,
                             [](const BeaconLocationManager* manager) { return !manager->ranged.empty(); });
}

bool BeaconLocationCore::isRanged(const BeaconLocationManager& manager,
                                  const CLBeaconRegionPtr& region) const {
  return std::ranges::any_of(manager.ranged,
                             [&](const CLBeaconRegionPtr& other) { return isSameRanging(*other, *region); });
}

void BeaconLocationCore::updateRangedUUIDs() {
  std::set<NSUUID> uuids;
  for (const BeaconLocationManager* manager : managers_)
    for (const CLBeaconRegionPtr& region : manager->ranged) uuids.insert(region->proximityUUID());
  presence_.setRangedUUIDs(std::move(uuids));
}

// ---- Reports

/// Reports on the main queue, if the service is still allowed to and the condition still holds there.
void BeaconLocationCore::post(BeaconLocationManager& manager, Condition condition, Report report) {
  const auto isWanted = [weak = weak_from_this(), &manager, condition = std::move(condition)] {
    const auto self = weak.lock();
    if (!self) return false;
    const std::scoped_lock lock(self->mutex_);
    return self->isAllowed() && (!condition || condition(manager));
  };
  options_.dispatch->mainQueue()->async(
      [gate = manager.gate(), &manager, isWanted, report = std::move(report)] {
        gate->call([&](CLLocationManagerDelegate& delegate) {
          if (isWanted()) report(manager, delegate);
        });
      });
}

BeaconLocationCore::Condition BeaconLocationCore::whileMonitored(CLRegionPtr region) const {
  return [this, region = std::move(region)](const auto&) { return presence_.isMonitored(region); };
}

void BeaconLocationCore::postChanges(const BeaconPresence::Changes& changes) {
  for (const BeaconPresence::Change& change : changes) {
    const CLRegionPtr& region = change.region;
    const bool isFirst = change.before == CLRegionState::unknown;
    const bool isEntry = change.now == CLRegionState::inside;
    if (!isFirst && !(isEntry ? region->notifyOnEntry() : region->notifyOnExit())) continue;
    const auto notify = [&](const Report& report) {
      for (BeaconLocationManager* manager : managers_) post(*manager, whileMonitored(region), report);
    };
    notify([region, state = change.now](auto& reporter, auto& delegate) {
      delegate.locationManager_didDetermineState_forRegion(reporter, state, region);
    });
    if (isFirst) continue;
    // On its own: the first report may have replaced the delegate.
    notify([region, isEntry](auto& reporter, auto& delegate) {
      isEntry ? delegate.locationManager_didEnterRegion(reporter, region)
              : delegate.locationManager_didExitRegion(reporter, region);
    });
  }
}

void BeaconLocationCore::postRanging(BeaconLocationManager& manager, const CLBeaconRegionPtr& region,
                                     dispatch_time_t now) {
  const auto isStillRanged = [this, region](const auto& reporter) { return isRanged(reporter, region); };
  post(manager, isStillRanged,
       [region, beacons = presence_.range(*region, now)](auto& reporter, auto& delegate) {
         delegate.locationManager_didRangeBeacons_inRegion(reporter, beacons, region);
       });
}

// ---- Radio and time

void BeaconLocationCore::makeQueue() {
  queue_ = options_.dispatch->createQueue("location");
  const auto makeTimer = [&](void (BeaconLocationCore::*handler)()) {
    dispatch_source_t timer = options_.dispatch->createTimer(queue_);
    timer->setEventHandler([weak = weak_from_this(), handler] {
      if (const auto self = weak.lock()) (self.get()->*handler)();
    });
    timer->resume();
    return timer;
  };
  checkTimer_ = makeTimer(&BeaconLocationCore::check);
  tickTimer_ = makeTimer(&BeaconLocationCore::tick);
}

/// Brings the radio in line with what is wanted, soon.
void BeaconLocationCore::refresh() {
  if (!queue_) {
    if (!isAllowed() || (presence_.regions().empty() && !isRanging())) return;
    makeQueue();
  }
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->update();
  });
}

void BeaconLocationCore::update() {
  const auto isWanted = [&] {
    const std::scoped_lock lock(mutex_);
    return isAllowed() && (!presence_.regions().empty() || isRanging());
  }();
  if (isWanted && !central_) central_ = options_.bluetooth->makeCentralManager(centralDelegate_, queue_);
  if (!central_) return;
  const bool isOn = central_->state() == CBManagerState::poweredOn;
  if (isWanted && isOn && !isScanning_)
    central_->scanForPeripheralsWithServices_options(std::nullopt, {.allowDuplicates = true});
  // Also when the radio's state came between: not every such report means that the scan has ended.
  if (!isWanted) central_->stopScan();
  isScanning_ = isWanted && isOn;

  const std::scoped_lock lock(mutex_);
  if (isScanning_ && isAllowed())
    presence_.startListening(options_.dispatch->now());
  else
    stopListening();
  checkPresence();
  armTick();
}

/// What was silent for long enough by now stays so, whatever is heard of the radio later.
void BeaconLocationCore::stopListening() {
  checkPresence();
  presence_.stopListening();
}

void BeaconLocationCore::checkPresence() {
  BeaconPresence::Changes changes;
  presence_.check(options_.dispatch->now(), changes);
  postChanges(changes);
  checkTime_.reset();
  armCheck(presence_.nextCheck(options_.dispatch->now()));
}

/// A check that is due earlier than needed stays: it finds out what is next.
void BeaconLocationCore::armCheck(std::optional<dispatch_time_t> next) {
  if (!next || (checkTime_ && *checkTime_ <= *next)) return;
  checkTime_ = next;
  checkTimer_->setTimer(*next, DISPATCH_TIME_FOREVER, dispatch_time_t::zero());
}

void BeaconLocationCore::armTick() {
  if (!isAllowed() || !isRanging()) {
    tickTime_.reset();
    return;
  }
  if (tickTime_) return;
  presence_.beginSecond();
  tickTime_ = options_.dispatch->now() + kRangingPeriod;
  tickTimer_->setTimer(*tickTime_, DISPATCH_TIME_FOREVER, dispatch_time_t::zero());
}

void BeaconLocationCore::check() {
  const std::scoped_lock lock(mutex_);
  checkPresence();
}

void BeaconLocationCore::tick() {
  const std::scoped_lock lock(mutex_);
  const dispatch_time_t now = options_.dispatch->now();
  if (!tickTime_ || now < *tickTime_) return;
  if (!isAllowed()) {
    tickTime_.reset();
    return;
  }
  for (BeaconLocationManager* manager : managers_)
    for (const CLBeaconRegionPtr& region : manager->ranged) postRanging(*manager, region, now);
  presence_.beginSecond();
  // Seconds that were slept through are not made up for.
  while (*tickTime_ <= now) *tickTime_ += kRangingPeriod;
  tickTimer_->setTimer(*tickTime_, DISPATCH_TIME_FOREVER, dispatch_time_t::zero());
}

void BeaconLocationCore::CentralDelegate::centralManagerDidUpdateState(CBCentralManager&) {
  if (const auto self = core_.weak_from_this().lock()) self->radioChanged();
}

void BeaconLocationCore::CentralDelegate::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    CBCentralManager&, const CBPeripheral&, const CBAdvertisementData& advertisementData, int64_t rssi) {
  if (const auto self = core_.weak_from_this().lock()) self->heard(advertisementData, rssi);
}

// A radio that was away has ended the scan, even if it is back already.
void BeaconLocationCore::radioChanged() {
  isScanning_ = false;
  {
    const std::scoped_lock lock(mutex_);
    stopListening();
  }
  update();
}

void BeaconLocationCore::heard(const CBAdvertisementData& advertisementData, int64_t rssi) {
  if (!advertisementData.manufacturerData) return;
  const auto frame = parseIBeaconFrame(*advertisementData.manufacturerData);
  if (!frame) return;
  const std::scoped_lock lock(mutex_);
  BeaconPresence::Changes changes;
  const dispatch_time_t now = options_.dispatch->now();
  if (!presence_.hear(*frame, rssi, now, changes)) return;
  postChanges(changes);
  armCheck(now + kExitDelay);
}

}  // namespace platform
