#include "platform/bluetooth/CentralDelivery.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

bool listsOneOf(const CBAdvertisementData& data, const std::vector<CBUUID>& services) {
  if (services.empty()) return true;
  if (!data.serviceUUIDs) return false;
  return std::find_first_of(data.serviceUUIDs->begin(), data.serviceUUIDs->end(), services.begin(),
                            services.end()) != data.serviceUUIDs->end();
}

}  // namespace

CentralDelivery::CentralDelivery(CBCentralManager& central, CBCentralManagerDelegate& delegate,
                                 dispatch_queue_t queue, int mostWaiting, LogSink onDiagnostic)
    : central_(central),
      delegate_(delegate),
      queue_(std::move(queue)),
      backlog_(std::move(onDiagnostic), mostWaiting) {}

void CentralDelivery::startScan(std::vector<CBUUID> services, bool allowDuplicates) {
  const std::lock_guard lock(mutex_);
  ++scanNumber_;
  scan_ = Scan{std::move(services), allowDuplicates, {}};
}

void CentralDelivery::stopScan() {
  const std::lock_guard lock(mutex_);
  ++scanNumber_;
  scan_.reset();
}

std::optional<std::vector<CBUUID>> CentralDelivery::scan() const {
  const std::lock_guard lock(mutex_);
  return scan_ ? std::optional(scan_->services) : std::nullopt;
}

void CentralDelivery::didUpdateState() {
  queue_->async([self = shared_from_this()] {
    self->gate_.call([&] { self->delegate_.centralManagerDidUpdateState(self->central_); });
  });
}

void CentralDelivery::didHear(const AdvertisingReport& report, const Merged& merged) {
  switch (place(report, merged)) {
    case Place::none:
    case Place::replaced:
      return;
    case Place::dropped:
      return backlog_.drop();
    case Place::behind:
      return queue_->async([self = shared_from_this()] { self->deliverNext(); });
  }
}

CentralDelivery::Place CentralDelivery::place(const AdvertisingReport& report, const Merged& merged) {
  const std::lock_guard lock(mutex_);
  if (!scan_ || !listsOneOf(merged->data, scan_->services)) return Place::none;
  const uint64_t sender = report.address.isAnonymous() ? 0 : report.address.key();
  const bool isOnce = !scan_->allowDuplicates && sender != 0;
  if (isOnce && scan_->delivered.contains(sender)) return Place::none;
  const Place place = put({merged, sender, scanNumber_, report.rssi});
  if (isOnce && place != Place::dropped) {
    if (scan_->delivered.size() >= kMostAddresses) scan_->delivered.clear();
    scan_->delivered.insert(sender);
  }
  return place;
}

CentralDelivery::Place CentralDelivery::put(Waiting&& heard) {
  if (!backlog_.add()) {
    Waiting* const older = newestOf(heard.sender);
    if (older == nullptr) return Place::dropped;
    *older = std::move(heard);
    return Place::replaced;
  }
  if (newest_) note(heard.sender, taken_ + waiting_.size());
  waiting_.push_back(std::move(heard));
  return Place::behind;
}

CentralDelivery::Waiting* CentralDelivery::newestOf(uint64_t sender) {
  if (!newest_) {
    newest_.emplace();
    uint64_t number = taken_;
    for (const Waiting& waiting : waiting_) note(waiting.sender, number++);
  }
  const auto found = newest_->find(sender);
  return found == newest_->end() ? nullptr : &waiting_[found->second - taken_];
}

void CentralDelivery::note(uint64_t sender, uint64_t number) {
  if (sender != 0) (*newest_)[sender] = number;
}

void CentralDelivery::forget(uint64_t sender, uint64_t number) {
  const auto found = newest_->find(sender);
  if (found != newest_->end() && found->second == number) newest_->erase(found);
}

void CentralDelivery::deliverNext() {
  gate_.call([this] {
    int8_t rssi = 0;
    if (const Merged next = takeNext(rssi))
      delegate_.centralManager_didDiscoverPeripheral_advertisementData_RSSI(central_, next->peripheral,
                                                                            next->data, rssi);
  });
}

/// Nothing when its scan is over.
CentralDelivery::Merged CentralDelivery::takeNext(int8_t& rssi) {
  const std::lock_guard lock(mutex_);
  backlog_.remove();
  Waiting next = std::move(waiting_.front());
  waiting_.pop_front();
  if (newest_) forget(next.sender, taken_);
  ++taken_;
  if (waiting_.empty()) newest_.reset();
  if (next.scanNumber != scanNumber_) return nullptr;
  rssi = next.rssi;
  return std::move(next.merged);
}

void CentralDelivery::close() {
  stopScan();
  gate_.close();
  backlog_.close();
}

}  // namespace platform
