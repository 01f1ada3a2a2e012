#include "platform/simulated/ScriptedLocationService.h"

#include <functional>
#include <mutex>
#include <utility>

#include "platform/dispatch/DelegateGate.h"

namespace platform {
namespace {

using ManagerGate = DelegateGate<CLLocationManagerDelegate>;

class Location final : public ScriptedLocationService, public std::enable_shared_from_this<Location> {
 public:
  Location(std::shared_ptr<DispatchService> dispatch, CLAuthorizationStatus authorization)
      : dispatch_(std::move(dispatch)), authorization_(authorization) {}

  bool locationServicesEnabled() const override { return read(enabled_); }
  CLAuthorizationStatus authorizationStatus() const override { return read(authorization_); }
  std::unique_ptr<CLLocationManager> makeLocationManager() override;

  std::vector<Operation> operations() const override { return read(operations_); }
  std::vector<std::string> operationNames() const override;
  void clearOperations() override { write(operations_, {}); }
  void setMonitoredRegions(std::vector<CLRegionPtr> regions) override {
    write(monitored_, std::move(regions));
  }
  void setLocationServicesEnabled(bool enabled) override { write(enabled_, enabled); }
  void setRespondsToRequestAlwaysAuthorization(bool responds) override { write(responds_, responds); }
  void setAuthorizationStatus(CLAuthorizationStatus status) override { write(authorization_, status); }

  void changeAuthorization(CLAuthorizationStatus status, Delivery delivery) override;
  void startedMonitoring(CLRegionPtr region, Delivery delivery) override;
  void monitoringFailed(CLRegionPtr region, CLError error, Delivery delivery) override;
  void failed(CLError error, Delivery delivery) override;
  void entered(CLRegionPtr region, Delivery delivery) override;
  void exited(CLRegionPtr region, Delivery delivery) override;
  void determinedState(CLRegionState state, CLRegionPtr region, Delivery delivery) override;
  void ranged(std::vector<CLBeacon> beacons, CLBeaconRegionPtr region, Delivery delivery) override;

  // For managers.
  void record(std::string name, CLRegionPtr region = nullptr);
  void monitor(const CLRegionPtr& region);
  void stopMonitoring(const CLRegion& region);
  std::vector<CLRegionPtr> monitoredRegions() const { return read(monitored_); }
  bool responds() const { return read(responds_); }
  void remove(CLLocationManager& manager);

 private:
  using Call = std::function<void(CLLocationManager&, CLLocationManagerDelegate&)>;
  struct Entry {
    CLLocationManager* manager;
    std::shared_ptr<ManagerGate> gate;

    void run(const Call& call) const {
      gate->call([&](CLLocationManagerDelegate& delegate) { call(*manager, delegate); });
    }
  };

  template <class Field>
  Field read(const Field& field) const {
    const std::scoped_lock lock(mutex_);
    return field;
  }
  template <class Field>
  void write(Field& field, Field value) {
    const std::scoped_lock lock(mutex_);
    field = std::move(value);
  }
  void forget(const CLRegion& region);  ///< with the mutex held
  void deliver(Delivery delivery, const Call& call);
  void submit(const Entry& entry, const Call& call);

  const std::shared_ptr<DispatchService> dispatch_;
  mutable std::mutex mutex_;  // guards what follows
  CLAuthorizationStatus authorization_;
  bool enabled_ = true;
  bool responds_ = true;
  std::vector<Operation> operations_;
  std::vector<CLRegionPtr> monitored_;
  std::vector<Entry> entries_;
};

class Manager final : public CLLocationManager {
 public:
  Manager(std::shared_ptr<Location> service, std::shared_ptr<ManagerGate> gate)
      : service_(std::move(service)), gate_(std::move(gate)) {}
  ~Manager() override {
    gate_->setDelegate(nullptr);
    service_->remove(*this);
  }

  void setDelegate(CLLocationManagerDelegate* delegate) override { gate_->setDelegate(delegate); }
  std::vector<CLRegionPtr> monitoredRegions() const override { return service_->monitoredRegions(); }
  void startMonitoringForRegion(CLRegionPtr region) override {
    service_->record("startMonitoringForRegion:", region);
    service_->monitor(region);
  }
  void stopMonitoringForRegion(const CLRegionPtr& region) override {
    service_->record("stopMonitoringForRegion:", region);
    service_->stopMonitoring(*region);
  }
  void requestStateForRegion(const CLRegionPtr& region) override {
    service_->record("requestStateForRegion:", region);
  }
  void startRangingBeaconsInRegion(CLBeaconRegionPtr region) override {
    service_->record("startRangingBeaconsInRegion:", std::move(region));
  }
  void stopRangingBeaconsInRegion(const CLRegionPtr& region) override {
    service_->record("stopRangingBeaconsInRegion:", region);
  }
  bool respondsToRequestAlwaysAuthorization() const override { return service_->responds(); }
  void requestAlwaysAuthorization() override { service_->record("requestAlwaysAuthorization"); }
  void startMonitoringSignificantLocationChanges() override {
    service_->record("startMonitoringSignificantLocationChanges");
  }

 private:
  const std::shared_ptr<Location> service_;
  const std::shared_ptr<ManagerGate> gate_;
};

std::unique_ptr<CLLocationManager> Location::makeLocationManager() {
  auto gate = std::make_shared<ManagerGate>();
  auto manager = std::make_unique<Manager>(shared_from_this(), gate);
  const std::scoped_lock lock(mutex_);
  entries_.push_back({manager.get(), std::move(gate)});
  submit(entries_.back(), [status = static_cast<int32_t>(authorization_)](auto& reporter, auto& delegate) {
    delegate.locationManager_didChangeAuthorizationStatus(reporter, status);
  });
  return manager;
}

void Location::submit(const Entry& entry, const Call& call) {
  dispatch_->mainQueue()->async([entry, call] { entry.run(call); });
}

void Location::deliver(Delivery delivery, const Call& call) {
  const std::vector<Entry> entries = read(entries_);
  for (const Entry& entry : entries) {
    if (delivery == Delivery::mainQueue)
      submit(entry, call);
    else
      entry.run(call);
  }
}

void Location::record(std::string name, CLRegionPtr region) {
  const std::scoped_lock lock(mutex_);
  operations_.push_back({std::move(name), std::move(region)});
}

std::vector<std::string> Location::operationNames() const {
  const std::scoped_lock lock(mutex_);
  std::vector<std::string> names;
  for (const Operation& operation : operations_) names.push_back(operation.name);
  return names;
}

void Location::monitor(const CLRegionPtr& region) {
  const std::scoped_lock lock(mutex_);
  forget(*region);
  monitored_.push_back(region);
}

void Location::stopMonitoring(const CLRegion& region) {
  const std::scoped_lock lock(mutex_);
  forget(region);
}

void Location::forget(const CLRegion& region) {
  std::erase_if(monitored_, [&](const CLRegionPtr& old) { return old->identifier() == region.identifier(); });
}

void Location::remove(CLLocationManager& manager) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.manager == &manager; });
}

void Location::changeAuthorization(CLAuthorizationStatus status, Delivery delivery) {
  setAuthorizationStatus(status);
  deliver(delivery, [status](auto& manager, auto& delegate) {
    delegate.locationManager_didChangeAuthorizationStatus(manager, static_cast<int32_t>(status));
  });
}

void Location::startedMonitoring(CLRegionPtr region, Delivery delivery) {
  deliver(delivery, [region = std::move(region)](auto& manager, auto& delegate) {
    delegate.locationManager_didStartMonitoringForRegion(manager, region);
  });
}

void Location::monitoringFailed(CLRegionPtr region, CLError error, Delivery delivery) {
  deliver(delivery, [region = std::move(region), error = std::move(error)](auto& manager, auto& delegate) {
    delegate.locationManager_monitoringDidFailForRegion_withError(manager, region, error);
  });
}

void Location::failed(CLError error, Delivery delivery) {
  deliver(delivery, [error = std::move(error)](auto& manager, auto& delegate) {
    delegate.locationManager_didFailWithError(manager, error);
  });
}

void Location::entered(CLRegionPtr region, Delivery delivery) {
  deliver(delivery, [region = std::move(region)](auto& manager, auto& delegate) {
    delegate.locationManager_didEnterRegion(manager, region);
  });
}

void Location::exited(CLRegionPtr region, Delivery delivery) {
  deliver(delivery, [region = std::move(region)](auto& manager, auto& delegate) {
    delegate.locationManager_didExitRegion(manager, region);
  });
}

void Location::determinedState(CLRegionState state, CLRegionPtr region, Delivery delivery) {
  deliver(delivery, [state, region = std::move(region)](auto& manager, auto& delegate) {
    delegate.locationManager_didDetermineState_forRegion(manager, state, region);
  });
}

void Location::ranged(std::vector<CLBeacon> beacons, CLBeaconRegionPtr region, Delivery delivery) {
  deliver(delivery,
          [beacons = std::move(beacons), region = std::move(region)](auto& manager, auto& delegate) {
            delegate.locationManager_didRangeBeacons_inRegion(manager, beacons, region);
          });
}

}  // namespace

std::shared_ptr<ScriptedLocationService> ScriptedLocationService::make(
    std::shared_ptr<DispatchService> dispatch, CLAuthorizationStatus authorization) {
  return std::make_shared<Location>(std::move(dispatch), authorization);
}

}  // namespace platform
