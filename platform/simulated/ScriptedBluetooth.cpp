#include "platform/simulated/ScriptedBluetooth.h"

#include <functional>
#include <mutex>
#include <utility>

#include "platform/dispatch/DelegateGate.h"

namespace platform {
namespace {

using CentralGate = DelegateGate<CBCentralManagerDelegate>;

class Bluetooth final : public ScriptedBluetooth, public std::enable_shared_from_this<Bluetooth> {
 public:
  explicit Bluetooth(CBManagerState initial) : state_(initial) {}

  std::unique_ptr<CBCentralManager> makeCentralManager(CBCentralManagerDelegate& delegate,
                                                       dispatch_queue_t queue) override;
  std::vector<Operation> operations() const override;
  void clearOperations() override;
  void setState(CBManagerState state) override;
  void discover(CBPeripheral peripheral, CBAdvertisementData advertisementData, int64_t rssi) override;

  CBManagerState state() const;
  void record(Operation operation);
  void remove(CBCentralManager& central);

 private:
  using Call = std::function<void(CBCentralManager&, CBCentralManagerDelegate&)>;
  struct Entry {
    CBCentralManager* central;
    std::shared_ptr<CentralGate> gate;
    dispatch_queue_t queue;
  };

  static void deliver(const Entry& entry, Call call);
  void deliverToAll(const Call& call);

  mutable std::mutex mutex_;
  CBManagerState state_;
  std::vector<Operation> operations_;
  std::vector<Entry> entries_;
};

class Central final : public CBCentralManager {
 public:
  Central(std::shared_ptr<Bluetooth> bluetooth, std::shared_ptr<CentralGate> gate)
      : bluetooth_(std::move(bluetooth)), gate_(std::move(gate)) {}
  ~Central() override {
    gate_->setDelegate(nullptr);
    bluetooth_->remove(*this);
  }

  CBManagerState state() const override { return bluetooth_->state(); }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                              const CBCentralManagerScanOptions& options) override {
    bluetooth_->record({ScriptedBluetooth::Operation::Kind::scan, services, options});
  }
  void stopScan() override { bluetooth_->record({ScriptedBluetooth::Operation::Kind::stopScan, {}, {}}); }

 private:
  const std::shared_ptr<Bluetooth> bluetooth_;
  const std::shared_ptr<CentralGate> gate_;
};

std::unique_ptr<CBCentralManager> Bluetooth::makeCentralManager(CBCentralManagerDelegate& delegate,
                                                                dispatch_queue_t queue) {
  auto gate = std::make_shared<CentralGate>();
  gate->setDelegate(&delegate);
  auto central = std::make_unique<Central>(shared_from_this(), gate);
  record({Operation::Kind::makeCentralManager, {}, {}});
  const std::scoped_lock lock(mutex_);
  entries_.push_back({central.get(), std::move(gate), std::move(queue)});
  deliver(entries_.back(),
          [](auto& manager, auto& receiver) { receiver.centralManagerDidUpdateState(manager); });
  return central;
}

void Bluetooth::deliver(const Entry& entry, Call call) {
  entry.queue->async([entry, call = std::move(call)] {
    entry.gate->call([&](CBCentralManagerDelegate& delegate) { call(*entry.central, delegate); });
  });
}

void Bluetooth::deliverToAll(const Call& call) {
  const std::scoped_lock lock(mutex_);
  for (const Entry& entry : entries_) deliver(entry, call);
}

void Bluetooth::setState(CBManagerState state) {
  {
    const std::scoped_lock lock(mutex_);
    state_ = state;
  }
  deliverToAll([](auto& central, auto& delegate) { delegate.centralManagerDidUpdateState(central); });
}

void Bluetooth::discover(CBPeripheral peripheral, CBAdvertisementData advertisementData, int64_t rssi) {
  deliverToAll([peripheral = std::move(peripheral), data = std::move(advertisementData), rssi](
                   auto& central, auto& delegate) {
    delegate.centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, peripheral, data, rssi);
  });
}

CBManagerState Bluetooth::state() const {
  const std::scoped_lock lock(mutex_);
  return state_;
}

void Bluetooth::record(Operation operation) {
  const std::scoped_lock lock(mutex_);
  operations_.push_back(std::move(operation));
}

std::vector<ScriptedBluetooth::Operation> Bluetooth::operations() const {
  const std::scoped_lock lock(mutex_);
  return operations_;
}

void Bluetooth::clearOperations() {
  const std::scoped_lock lock(mutex_);
  operations_.clear();
}

void Bluetooth::remove(CBCentralManager& central) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.central == &central; });
}

}  // namespace

std::shared_ptr<ScriptedBluetooth> ScriptedBluetooth::make(CBManagerState initial) {
  return std::make_shared<Bluetooth>(initial);
}

}  // namespace platform
