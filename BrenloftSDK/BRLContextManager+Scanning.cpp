#include <algorithm>
#include <chrono>
#include <utility>

#include "BrenloftSDK/BRLContextManager.h"
#include "BrenloftSDK/BRLLastHeard.h"
#include "platform/foundation/Hex.h"
#include "platform/foundation/NSLog.h"

// The sensor search: the scan, what an advertisement does to the records, and the lost check.

namespace {

using platform::CBManagerState;
using platform::CBUUID;
using platform::Date;
using platform::NSLog;

// The whole second up to which a beacon heard last counts as lost. Goes back no further than the lost timer
// waits, in whole microseconds as dates are: a timer on its deadline finds its own beacon.
int64_t lostCutoff(Date now, double exitTime) {
  return platform::wholeSecondsSince1970(
      now - std::chrono::floor<std::chrono::microseconds>(BRLTimer::durationOf(exitTime)));
}

}  // namespace

void BRLContextManager::BrenloftStart() {
  beaconOperationsQueue_->async([this] { startScanning(); });
}

void BRLContextManager::startScanning() {
  const CBManagerState state = centralManager_->state();
  if (state != CBManagerState::poweredOn) {
    NSLog("CBCentralManager state is " + std::to_string(static_cast<int>(state)) +
          ", cannot start or stop scanning");
    return;
  }
  NSLog("Starting to scan for Eddystones");  // the exact message is part of the interface
  std::optional<std::vector<CBUUID>> services;
  if (const auto text = beaconUUID(); text && !text->empty()) {
    const auto uuid = CBUUID::UUIDWithString(*text);
    if (!uuid) {
      NSLog("Not a service UUID: " + *text);
      return;
    }
    services.emplace({*uuid});
  }
  centralManager_->scanForPeripheralsWithServices_options(services, {.allowDuplicates = true});
}

void BRLContextManager::centralManagerDidUpdateState(platform::CBCentralManager& central) {
  if (central.state() == CBManagerState::poweredOn && isStart_ && beaconType_ == kBRLSensorBeacon) start();
}

void BRLContextManager::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    platform::CBCentralManager& /*central*/, const platform::CBPeripheral& /*peripheral*/,
    const platform::CBAdvertisementData& advertisementData, int64_t rssi) {
  const auto& manufacturerData = advertisementData.manufacturerData;
  const auto& services = advertisementData.serviceUUIDs;
  if (!manufacturerData || !services || services->empty()) return;
  const auto frame = BRLSensorFrame::of(*manufacturerData);
  if (!frame) return;
  reportOctets(*manufacturerData);
  const std::string key = services->front().UUIDString();
  // A new beacon's date is not later than the start of its timer, which the walk makes.
  const Date heard = dispatch_->date();
  if (!refreshMatches(key, rssi, *frame)) addSensorBeacon(key, heard, rssi, *frame);
}

// The texts of the last advertisement are written over, but for a delegate that lets in another one
// meanwhile.
void BRLContextManager::reportOctets(platform::DataView manufacturerData) noexcept {
  BRLContextManagerDelegate* delegate = delegateFor(BRLDelegateOperation::didByteArray);
  if (delegate == nullptr) return;
  std::vector<std::string> octets = std::exchange(octetTexts_, {});
  if (octets.size() != manufacturerData.size()) octets.resize(manufacturerData.size(), std::string(2, '0'));
  const std::byte* next = manufacturerData.data();
  for (std::string& text : octets) {
    const auto& digits = platform::kUpperHexPairs[std::to_integer<uint8_t>(*next++)];
    std::ranges::copy(digits, text.data());
  }
  delegate->contextManager_didByteArray(*this, octets);
  octetTexts_ = std::move(octets);
}

// Every record that is visited, matching or not, keeps the lost timer of `key` up to date. Of a run of visits
// with no delegate between them the first one does it: pushing the same timer back again at the same moment
// changes nothing, and only the first can find it missing or fired.
bool BRLContextManager::refreshMatches(const BRLHashedText& key, int64_t rssi, const BRLSensorFrame& frame) {
  const auto known = rangeBeaconSensors_.view();
  const auto matchFrom = [&](size_t next) {
    return rangeBeaconSensors_.find(BRLRecordList::Identity::uuid, key, 0, 0, next, known.size());
  };
  auto match = matchFrom(0);
  const bool isKnown = match.has_value();
  if (!known.empty() && (!match || match->number > 0)) keepLostTimer(key, known[0]);
  while (match) {
    const Record& record = known[match->number];
    refreshKnownBeacon(record, rssi, frame);
    keepLostTimer(key, record);
    match = match->isLast ? std::nullopt : matchFrom(match->number + 1);
  }
  return isKnown;
}

void BRLContextManager::refreshKnownBeacon(const Record& record, int64_t rssi, const BRLSensorFrame& frame) {
  record->refresh(dispatch_->date(), rssi, frame);
  if (!record->markPresent()) {
    if (frame.emergency() >= 1) {
      reportEmergency(record);
      if (isLogSave()) loggingForSensor(*record);
    }
    // Deliberately after the refresh, which has made the two equal.
    if (isLogSave() && record->beaconId() != frame.uniqueId()) loggingForSensor(*record);
  } else if (isLogSave()) {
    loggingForSensor(*record);
  }
  reportBeacon(record);
}

void BRLContextManager::addSensorBeacon(const std::string& key, Date heard, int64_t rssi,
                                        const BRLSensorFrame& frame) {
  const auto record = std::make_shared<BRLBeaconDataModel>(key, heard, rssi, frame);
  reportBeacon(record);
  appendBeacon(record);
  if (frame.emergency() >= 1) reportEmergency(record);
  if (isLogSave()) loggingForSensor(*record);
}

// A timer that has fired is replaced; one that was cleared stays dead. Asked after the push-back: either the
// timer was cancelled by then, or `replaceOvertakenTimer` sees the push-back.
void BRLContextManager::keepLostTimer(const BRLHashedText& key, const Record& record) {
  const std::scoped_lock lock(seenMutex_);
  const auto found = seenBRLCache_.find(key);
  if (found == seenBRLCache_.end()) {
    seenBRLCache_.emplace(key.text, SeenBeacon{record, makeLostTimer()});
    return;
  }
  SeenBeacon& seen = found->second;
  seen.on_lost_timer->reschedule();
  if (seen.on_lost_timer->source()->testCancel() && !seen.isCleared) seen.on_lost_timer = makeLostTimer();
}

std::shared_ptr<BRLTimer> BRLContextManager::makeLostTimer() {
  return BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(beaconExitTime_, dispatch_->mainQueue(),
                                                                [this](BRLTimer& timer) {
                                                                  replaceOvertakenTimer(timer);
                                                                  checkLost();
                                                                });
}

// An advertisement may push the timer back after its firing was decided and before it counts as cancelled.
// The deadline then lies ahead, and nothing else would watch for the silence after that advertisement. So
// seldom that the timer is looked for.
void BRLContextManager::replaceOvertakenTimer(const BRLTimer& timer) {
  if (timer.source()->start() <= dispatch_->now()) return;
  const std::scoped_lock lock(seenMutex_);
  const auto found = std::ranges::find_if(
      seenBRLCache_, [&](const auto& entry) { return entry.second.on_lost_timer.get() == &timer; });
  if (found != seenBRLCache_.end() && !found->second.isCleared) found->second.on_lost_timer = makeLostTimer();
}

// The walk over the list as it was at the beginning, in its order, but only over the records that may be
// silent. The cutoff is taken anew for each: a delegate may take its time or change the exit time.
void BRLContextManager::checkLost() {
  const size_t end = rangeBeaconSensors_.size();
  for (size_t next = 0; next < end;) {
    const int64_t cutoff = lostCutoff(dispatch_->date(), beaconExitTime_);
    const auto entry = lastHeard_->take(next, end, cutoff);
    if (!entry) break;
    const Record& record = rangeBeaconSensors_[entry->number];
    next = entry->number;  // a stale entry may stand before the record's own
    if (!loseIfSilent(*record, cutoff, entry->second)) continue;
    if (reportBeacon(record) && isLogSave()) loggingForSensor(*record);
    ++next;
  }
}

// The entry goes together with the status and not after the delegate: an advertisement that brings the record
// back meanwhile finds none and makes a timer, and nothing else makes one.
bool BRLContextManager::loseIfSilent(BRLBeaconDataModel& record, int64_t cutoff, int64_t entrySecond) {
  const std::scoped_lock lock(seenMutex_);
  if (!record.markLostIfSilentSince(cutoff, entrySecond)) return false;
  if (record.uuid()) seenBRLCache_.erase(*record.uuid());
  return true;
}

void BRLContextManager::clearRemainingTimers() {
  const std::scoped_lock lock(seenMutex_);
  for (auto& [key, seen] : seenBRLCache_) {
    seen.isCleared = true;
    seen.on_lost_timer->cancel();
  }
}

void BRLContextManager::Class::clearRemainingTimers() {
  sharedContextManager("clearRemainingTimers")->clearRemainingTimers();
}
