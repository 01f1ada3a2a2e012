#include "platform/bluetooth/RadioService.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/CentralDelivery.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/Mutex.h"

namespace platform {
namespace {

using Services = std::vector<CBUUID>;
using Deliveries = std::vector<std::shared_ptr<CentralDelivery>>;

/// What the scans of all managers ask of the source: nothing while none scans, no services when one wants
/// all.
std::optional<Services> unionOf(const Deliveries& deliveries) {
  std::optional<Services> all;
  bool wantsAll = false;
  for (const auto& delivery : deliveries) {
    const std::optional<Services> services = delivery->scan();
    if (!services) continue;
    if (!all) all.emplace();
    wantsAll = wantsAll || services->empty();
    std::copy_if(services->begin(), services->end(), std::back_inserter(*all),
                 [&](const CBUUID& uuid) { return std::find(all->begin(), all->end(), uuid) == all->end(); });
  }
  if (wantsAll) all->clear();
  return all;
}

class SourceRadio final : public RadioService, public std::enable_shared_from_this<SourceRadio> {
 public:
  SourceRadio(std::shared_ptr<AdvertisingReportSource> source, std::shared_ptr<DispatchService> dispatch,
              LogSink onDiagnostic, AdvertisementFilter filter)
      : source_(std::move(source)),
        dispatch_(std::move(dispatch)),
        onDiagnostic_(std::move(onDiagnostic)),
        filter_(std::move(filter)) {}
  ~SourceRadio() override {
    if (isOpen_) source_->close();
  }

  std::unique_ptr<CBCentralManager> makeCentralManager(CBCentralManagerDelegate& delegate,
                                                       dispatch_queue_t queue) override;

  CBManagerState state() const;
  std::shared_ptr<CentralDelivery> makeDelivery(CBCentralManager& central, CBCentralManagerDelegate& delegate,
                                                dispatch_queue_t queue) const;
  void add(const std::shared_ptr<CentralDelivery>& delivery);
  void remove(const std::shared_ptr<CentralDelivery>& delivery);
  void startScan(CentralDelivery& delivery, Services services, bool allowDuplicates);
  void stopScan(CentralDelivery& delivery);

 private:
  void open();
  void didHear(const AdvertisingReport& report);
  void didUpdateState(const RadioState& radio);
  std::shared_ptr<const Deliveries> deliveriesNow(bool& isFirstOfScan);
  void applyScans();

  const std::shared_ptr<AdvertisingReportSource> source_;
  const std::shared_ptr<DispatchService> dispatch_;
  const LogSink onDiagnostic_;
  const AdvertisementFilter filter_;
  AdvertisementMerger merger_;  // on the source's queue only

  // Taken before a delivery's mutex, never after it.
  mutable Mutex mutex_;  // guards what follows
  std::shared_ptr<const Deliveries> deliveries_ = std::make_shared<Deliveries>();
  std::optional<CBManagerState> state_;
  std::optional<Services> applied_;
  bool isNewScan_ = false;  // nothing has been heard in it
  bool isApplying_ = false;
  bool isOpen_ = false;
};

class RadioCentralManager final : public CBCentralManager {
 public:
  RadioCentralManager(std::shared_ptr<SourceRadio> radio, CBCentralManagerDelegate& delegate,
                      dispatch_queue_t queue)
      : radio_(std::move(radio)), delivery_(radio_->makeDelivery(*this, delegate, std::move(queue))) {
    radio_->add(delivery_);
  }
  ~RadioCentralManager() override {
    radio_->remove(delivery_);
    delivery_->close();
  }

  CBManagerState state() const override { return radio_->state(); }
  void scanForPeripheralsWithServices_options(const std::optional<Services>& services,
                                              const CBCentralManagerScanOptions& options) override {
    radio_->startScan(*delivery_, services.value_or(Services{}), options.allowDuplicates);
  }
  void stopScan() override { radio_->stopScan(*delivery_); }

 private:
  const std::shared_ptr<SourceRadio> radio_;
  const std::shared_ptr<CentralDelivery> delivery_;
};

std::unique_ptr<CBCentralManager> SourceRadio::makeCentralManager(CBCentralManagerDelegate& delegate,
                                                                  dispatch_queue_t queue) {
  return std::make_unique<RadioCentralManager>(shared_from_this(), delegate,
                                               queue ? queue : dispatch_->mainQueue());
}

CBManagerState SourceRadio::state() const {
  const std::lock_guard lock(mutex_);
  return state_.value_or(CBManagerState::unknown);
}

std::shared_ptr<CentralDelivery> SourceRadio::makeDelivery(CBCentralManager& central,
                                                           CBCentralManagerDelegate& delegate,
                                                           dispatch_queue_t queue) const {
  const bool isVirtual = std::dynamic_pointer_cast<VirtualDispatch>(dispatch_) != nullptr;
  const auto most = isVirtual ? std::numeric_limits<int>::max() : Backlog::kMost;
  return std::make_shared<CentralDelivery>(central, delegate, std::move(queue), most, onDiagnostic_);
}

void SourceRadio::add(const std::shared_ptr<CentralDelivery>& delivery) {
  bool isFirst = false;
  bool isStateKnown = false;
  {
    const std::lock_guard lock(mutex_);
    auto more = std::make_shared<Deliveries>(*deliveries_);
    more->push_back(delivery);
    deliveries_ = std::move(more);
    isFirst = !std::exchange(isOpen_, true);
    isStateKnown = state_.has_value();
  }
  if (isStateKnown) delivery->didUpdateState();
  if (isFirst) open();
}

// The source may outlive this object until its `close` has returned.
void SourceRadio::open() {
  const std::weak_ptr<SourceRadio> weak = weak_from_this();
  source_->open(
      [weak](const AdvertisingReport& report) {
        if (const auto self = weak.lock()) self->didHear(report);
      },
      [weak](const RadioState& radio) {
        if (const auto self = weak.lock()) self->didUpdateState(radio);
      });
}

void SourceRadio::remove(const std::shared_ptr<CentralDelivery>& delivery) {
  {
    const std::lock_guard lock(mutex_);
    auto fewer = std::make_shared<Deliveries>(*deliveries_);
    std::erase(*fewer, delivery);
    deliveries_ = std::move(fewer);
  }
  applyScans();
}

void SourceRadio::startScan(CentralDelivery& delivery, Services services, bool allowDuplicates) {
  {
    // Under the lock, so that no scan begins after the radio's loss has ended them.
    const std::lock_guard lock(mutex_);
    if (state_ != CBManagerState::poweredOn) return;
    delivery.startScan(std::move(services), allowDuplicates);
  }
  applyScans();
}

void SourceRadio::stopScan(CentralDelivery& delivery) {
  delivery.stopScan();
  applyScans();
}

// One thread at a time tells the source, without the lock; others leave their change to it.
void SourceRadio::applyScans() {
  std::unique_lock lock(mutex_);
  if (std::exchange(isApplying_, true)) return;
  for (auto wanted = unionOf(*deliveries_); wanted != applied_; wanted = unionOf(*deliveries_)) {
    isNewScan_ = isNewScan_ || !applied_;
    applied_ = wanted;
    lock.unlock();
    if (wanted) {
      source_->startScan(*wanted);
    } else {
      source_->stopScan();
    }
    lock.lock();
  }
  isApplying_ = false;
}

std::shared_ptr<const Deliveries> SourceRadio::deliveriesNow(bool& isFirstOfScan) {
  const std::lock_guard lock(mutex_);
  if (!applied_) return nullptr;
  isFirstOfScan = std::exchange(isNewScan_, false);
  return deliveries_;
}

void SourceRadio::didHear(const AdvertisingReport& report) {
  bool isFirstOfScan = false;
  const std::shared_ptr<const Deliveries> deliveries = deliveriesNow(isFirstOfScan);
  if (!deliveries) return;
  if (isFirstOfScan) merger_.clear();
  const auto merged = merger_.merge(report);
  if (filter_ && !filter_(merged->data)) return;
  for (const auto& delivery : *deliveries) delivery->didHear(report, merged);
}

void SourceRadio::didUpdateState(const RadioState& radio) {
  std::shared_ptr<const Deliveries> deliveries;
  {
    const std::lock_guard lock(mutex_);
    if (state_ == radio.state) return;  // only the reason changed, which managers do not tell
    state_ = radio.state;
    deliveries = deliveries_;
    if (radio.state != CBManagerState::poweredOn) {
      for (const auto& delivery : *deliveries) delivery->stopScan();
    }
  }
  applyScans();
  for (const auto& delivery : *deliveries) delivery->didUpdateState();
}

}  // namespace

std::shared_ptr<RadioService> RadioService::make(std::shared_ptr<AdvertisingReportSource> source,
                                                 std::shared_ptr<DispatchService> dispatch,
                                                 LogSink onDiagnostic, AdvertisementFilter filter) {
  return std::make_shared<SourceRadio>(std::move(source), std::move(dispatch), std::move(onDiagnostic),
                                       std::move(filter));
}

}  // namespace platform
