#include "BrenloftSDK/BRLContextManager.h"

#include <cstdlib>
#include <string>
#include <utility>

#include "BrenloftSDK/BRLLastHeard.h"
#include "platform/Platform.h"
#include "platform/foundation/NSLog.h"

const int64_t NearestBeaconSensorFindingBuffer = 2;
const char* const SAFETY_REGION_IDENTIFIER = "SaftyRegionIdentifier";
const char* const kBeaconExitTime = "BeaconExitTime";
const char* const kBRLBeaconRegionID = "BrenloftBeaconGroup";

namespace {

using platform::NSLog;
using platform::NSNumber;
using platform::Platform;

constexpr const char* kScannerQueueLabel = "BrenloftBeaconScannerBeaconsOperationQueueName";
constexpr int64_t kRegionOutside = 2;
constexpr double kDefaultExitTime = 5.0;

// The context manager's own slot, beside the one of its base class.
std::atomic<BRLDataManager*>& sharedSlot() {
  static std::atomic<BRLDataManager*> slot{nullptr};
  return slot;
}

}  // namespace

BRLDataManager* BRLContextManager::allocInit() {
  return new BRLContextManager;
}

BRLContextManager::BRLContextManager()
    : dispatch_(Platform::installed().dispatch), lastHeard_(std::make_shared<BRLLastHeard>()) {
  const Platform& services = Platform::installed();
  locationManager_ = services.location->makeLocationManager();
  locationManager_->setDelegate(this);
  beaconOperationsQueue_ = dispatch_->createQueue(kScannerQueueLabel);
  centralManager_ = services.bluetooth->makeCentralManager(*this, beaconOperationsQueue_);
  platform::NSUserDefaults& defaults = *services.userDefaults;
  if (!defaults.objectForKey(SAFETY_REGION_IDENTIFIER)) {
    defaults.setObject_forKey(NSNumber(kRegionOutside), SAFETY_REGION_IDENTIFIER);
  }
  setBeaconExitTime(defaults.doubleForKey(kBeaconExitTime));
  if (beaconExitTime_ == 0.0) setBeaconExitTime(kDefaultExitTime);
}

// Callbacks end before anything that they use goes away.
BRLContextManager::~BRLContextManager() {
  centralManager_.reset();
  locationManager_.reset();
}

void BRLContextManager::setBeaconExitTime(double seconds) {
  const std::scoped_lock lock(exitTimeMutex_);
  if (beaconExitTime_.exchange(seconds) == seconds) return;
  platform::NSUserDefaults& defaults = *Platform::installed().userDefaults;
  defaults.setDouble_forKey(seconds, kBeaconExitTime);
  defaults.synchronize();
}

std::optional<std::string> BRLContextManager::beaconUUID() const {
  const std::scoped_lock lock(uuidMutex_);
  return beaconUUID_;
}

void BRLContextManager::setBeaconUUID(platform::TextArgument uuid) {
  const std::scoped_lock lock(uuidMutex_);
  beaconUUID_ = std::move(uuid.text);
}

void BRLContextManager::start() {
  if (isStart_) stop();
  isStart_ = true;
  if (beaconType_ == kBRLIBeacon) {
    passLocationGate([this] { return isStart_.load(); });
  } else if (beaconType_ == kBRLSensorBeacon) {
    BrenloftStart();
  }
}

void BRLContextManager::stop() {
  endRegions();
  for (const Record& record : rangeBeaconSensors_.view()) {
    if (record->markLost()) reportBeacon(record);
  }
  centralManager_->stopScan();
}

std::optional<platform::Dictionary> BRLContextManager::responseDataSetting(
    platform::DataView manufacturerData) const {
  const auto readings = BRLSensorReadings::fromFrame(manufacturerData);
  if (!readings) return std::nullopt;
  return readings->dictionary();
}

BRLContextManagerDelegate* BRLContextManager::delegateFor(BRLDelegateOperation operation) const {
  BRLContextManagerDelegate* delegate = delegate_;
  return delegate != nullptr && delegate->respondsTo(operation) ? delegate : nullptr;
}

void BRLContextManager::appendBeacon(const Record& record) {
  record->enter(lastHeard_, rangeBeaconSensors_.append(record));
}

bool BRLContextManager::reportBeacon(const Record& record) noexcept {
  BRLContextManagerDelegate* delegate = delegateFor(BRLDelegateOperation::forBeacon);
  if (delegate == nullptr) return false;
  delegate->contextManager_forBeacon(*this, record);
  return true;
}

void BRLContextManager::reportEmergency(const Record& record) noexcept {
  if (auto* delegate = delegateFor(BRLDelegateOperation::emergencyCallback)) {
    delegate->emergencyCallback_forBeacon(*this, record);
  }
}

void BRLContextManager::reportRanged() noexcept {
  if (auto* delegate = delegateFor(BRLDelegateOperation::didRangeBeaconSensors)) {
    delegate->contextManager_didRangeBeaconSensors(*this, rangeBeaconSensors_);
  }
}

// Class operations.

// The base class's slot may already hold a plain data manager; it is handed out then.
BRLDataManager* BRLContextManager::Class::shareInstance() {
  if (BRLDataManager* shared = sharedSlot().load(std::memory_order_acquire)) return shared;
  BRLDataManager* shared = shareInstanceOfClass(&BRLContextManager::allocInit);
  sharedSlot().store(shared, std::memory_order_release);
  return shared;
}

BRLContextManager* BRLContextManager::sharedContextManager(const char* operation) {
  if (auto* manager = dynamic_cast<BRLContextManager*>(Class::shareInstance())) return manager;
  NSLog("-[BRLDataManager " + std::string(operation) +
        "]: unrecognized selector sent to the shared instance");
  std::abort();
}

BRLContextManager* BRLContextManager::Class::brlWithProximityUUID(platform::TextArgument uuid) {
  return brlWithProximityUUID_major_minor(std::move(uuid), 0, 0);
}

BRLContextManager* BRLContextManager::Class::brlWithProximityUUID_major(platform::TextArgument uuid,
                                                                        int64_t major) {
  return brlWithProximityUUID_major_minor(std::move(uuid), major, 0);
}

BRLContextManager* BRLContextManager::Class::brlWithProximityUUID_major_minor(platform::TextArgument uuid,
                                                                              int64_t major, int64_t minor) {
  BRLContextManager* manager = sharedContextManager("setBeaconUUID:");
  manager->setBeaconUUID(std::move(uuid));
  manager->setBeaconMajor(major);
  manager->setBeaconMajor(minor);  // deliberately the major again
  return manager;
}

void BRLContextManager::Class::setBeaconType(uint64_t beaconType) {
  sharedContextManager("setBeaconType:")->setBeaconType(beaconType);
}

void BRLContextManager::Class::setBeaconGroupType(int64_t beaconGroupType) {
  sharedContextManager("setBeaconGroupType:")->setBeaconGroupType(beaconGroupType);
}

void BRLContextManager::Class::setBeaconExitTime(double seconds) {
  if (seconds <= 0.0) {
    NSLog("error - responseTimeInterval 는 0보다 커야 합니다.");
    return;
  }
  sharedContextManager("setBeaconExitTime:")->setBeaconExitTime(seconds);
}

double BRLContextManager::Class::getBeaconExitTime() {
  return sharedContextManager("getBeaconExitTime")->getBeaconExitTime();
}

void BRLContextManager::Class::setDelegate(BRLContextManagerDelegate* delegate) {
  sharedContextManager("setDelegate:")->setDelegate(delegate);
}

void BRLContextManager::Class::startLeScan() {
  sharedContextManager("start")->start();
}

void BRLContextManager::Class::stopLeScan() {
  sharedContextManager("stop")->stop();
}

bool BRLContextManager::Class::isLeScan() {
  return sharedContextManager("isLeScan")->isLeScan();
}
