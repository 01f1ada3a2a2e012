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

void CentralDelivery::didHear(const AdvertisingReport& report,
                              const std::shared_ptr<const MergedAdvertisement>& merged) {
  const std::optional<uint64_t> scanNumber = scanThatWants(report, merged->data);
  if (!scanNumber || !backlog_.add()) return;
  queue_->async([self = shared_from_this(), merged, number = *scanNumber, rssi = report.rssi] {
    self->backlog_.remove();
    self->gate_.call([&] {
      if (!self->isCurrent(number)) return;
      self->delegate_.centralManager_didDiscoverPeripheral_advertisementData_RSSI(
          self->central_, merged->peripheral, merged->data, rssi);
    });
  });
}

std::optional<uint64_t> CentralDelivery::scanThatWants(const AdvertisingReport& report,
                                                       const CBAdvertisementData& data) {
  const std::lock_guard lock(mutex_);
  if (!scan_ || !listsOneOf(data, scan_->services)) return std::nullopt;
  if (!scan_->allowDuplicates && !report.address.isAnonymous()) {
    if (scan_->delivered.size() >= kMostAddresses) scan_->delivered.clear();
    if (!scan_->delivered.insert(report.address.key()).second) return std::nullopt;
  }
  return scanNumber_;
}

bool CentralDelivery::isCurrent(uint64_t scanNumber) const {
  const std::lock_guard lock(mutex_);
  return scanNumber == scanNumber_;
}

void CentralDelivery::close() {
  stopScan();
  gate_.close();
  backlog_.close();
}

}  // namespace platform
