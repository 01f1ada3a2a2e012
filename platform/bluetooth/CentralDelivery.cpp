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
                                 dispatch_queue_t queue)
    : central_(central), delegate_(delegate), queue_(std::move(queue)) {}

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
    if (!self->beginCallback(std::nullopt)) return;
    self->delegate_.centralManagerDidUpdateState(self->central_);
    self->endCallback();
  });
}

void CentralDelivery::didHear(const AdvertisingReport& report,
                              const std::shared_ptr<const MergedAdvertisement>& merged) {
  const std::optional<uint64_t> scanNumber = scanThatWants(report, merged->data);
  if (!scanNumber) return;
  queue_->async([self = shared_from_this(), merged, number = *scanNumber, rssi = report.rssi] {
    if (!self->beginCallback(number)) return;
    self->delegate_.centralManager_didDiscoverPeripheral_advertisementData_RSSI(
        self->central_, merged->peripheral, merged->data, rssi);
    self->endCallback();
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

bool CentralDelivery::beginCallback(std::optional<uint64_t> scanNumber) {
  const std::lock_guard lock(mutex_);
  if (isClosed_ || (scanNumber && *scanNumber != scanNumber_)) return false;
  ++runningCallbacks_;
  return true;
}

void CentralDelivery::endCallback() {
  {
    const std::lock_guard lock(mutex_);
    --runningCallbacks_;
  }
  isIdle_.notify_all();
}

void CentralDelivery::close() {
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  scan_.reset();
  if (!queue_->isCurrent()) isIdle_.wait(lock, [this] { return runningCallbacks_ == 0; });
}

}  // namespace platform
