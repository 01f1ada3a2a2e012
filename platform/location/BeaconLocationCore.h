#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/dispatch/DelegateGate.h"
#include "platform/location/BeaconLocationService.h"
#include "platform/location/BeaconPresence.h"

namespace platform {

class BeaconLocationManager;

/// The service behind `makeBeaconLocationService`. What it knows is guarded by one mutex; the central and
/// both timers belong to a private queue that is made for the first region or ranging. Blocks are submitted,
/// but no foreign code is called, with the mutex held: so reports keep the order in which things happened.
class BeaconLocationCore final : public BeaconLocationService,
                                 public std::enable_shared_from_this<BeaconLocationCore> {
 public:
  explicit BeaconLocationCore(BeaconLocationOptions options);
  ~BeaconLocationCore() override;

  bool locationServicesEnabled() const override;
  CLAuthorizationStatus authorizationStatus() const override;
  std::unique_ptr<CLLocationManager> makeLocationManager() override;
  void setAuthorizationStatus(CLAuthorizationStatus status) override;
  void setLocationServicesEnabled(bool enabled) override;

  // For managers.
  void remove(BeaconLocationManager& manager);
  std::vector<CLRegionPtr> monitoredRegions() const;
  void startMonitoring(BeaconLocationManager& manager, const CLRegionPtr& region);
  void stopMonitoring(const CLRegionPtr& region);
  void requestState(BeaconLocationManager& manager, const CLRegionPtr& region);
  void startRanging(BeaconLocationManager& manager, const CLBeaconRegionPtr& region);
  void stopRanging(BeaconLocationManager& manager, const CLRegionPtr& region);
  void requestAuthorization();

 private:
  using Report = std::function<void(BeaconLocationManager&, CLLocationManagerDelegate&)>;
  using Condition = std::function<bool(const BeaconLocationManager&)>;

  /// Holds the service while it handles a callback, and drops those that come once its end has begun: the
  /// central waits for callbacks when it is destroyed, and they must not find the service half gone.
  class CentralDelegate final : public CBCentralManagerDelegate {
   public:
    explicit CentralDelegate(BeaconLocationCore& core) : core_(core) {}
    void centralManagerDidUpdateState(CBCentralManager& central) override;
    void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
        CBCentralManager& central, const CBPeripheral& peripheral,
        const CBAdvertisementData& advertisementData, int64_t rssi) override;

   private:
    BeaconLocationCore& core_;
  };

  void changeAuthorization(CLAuthorizationStatus status);  ///< with the change mutex held

  // With the mutex held.
  bool isAllowed() const;
  bool isRanging() const;
  bool isRanged(const BeaconLocationManager& manager, const CLBeaconRegionPtr& region) const;
  void updateRangedUUIDs();
  void makeQueue();
  void refresh();
  void stopListening();
  void checkPresence();
  void armCheck(std::optional<dispatch_time_t> next);
  void armTick();
  void post(BeaconLocationManager& manager, Condition condition, Report report);
  Condition whileMonitored(CLRegionPtr region) const;
  void postAuthorization(BeaconLocationManager& manager);
  void postChanges(const BeaconPresence::Changes& changes);
  void postRanging(BeaconLocationManager& manager, const CLBeaconRegionPtr& region, dispatch_time_t now);

  // On the private queue.
  void update();
  void check();
  void tick();
  void radioChanged();
  void heard(const CBAdvertisementData& advertisementData, int64_t rssi);

  const BeaconLocationOptions options_;
  /// Held over a change of the authorization and its storing, so that the last change is stored last. Taken
  /// before the other mutex, and by nothing else.
  std::mutex changeMutex_;
  mutable std::mutex mutex_;
  CLAuthorizationStatus authorization_;
  bool enabled_;
  BeaconPresence presence_;
  std::vector<BeaconLocationManager*> managers_;
  dispatch_queue_t queue_;
  dispatch_source_t checkTimer_;
  dispatch_source_t tickTimer_;
  std::optional<dispatch_time_t> checkTime_;  ///< when `check` runs at the latest
  std::optional<dispatch_time_t> tickTime_;   ///< when `tick` runs next

  CentralDelegate centralDelegate_{*this};
  bool isScanning_ = false;                    ///< private queue only
  std::unique_ptr<CBCentralManager> central_;  ///< private queue only
};

/// One manager of the service.
class BeaconLocationManager final : public CLLocationManager {
 public:
  explicit BeaconLocationManager(std::shared_ptr<BeaconLocationCore> service);
  ~BeaconLocationManager() override;

  void setDelegate(CLLocationManagerDelegate* delegate) override;
  std::vector<CLRegionPtr> monitoredRegions() const override;
  void startMonitoringForRegion(CLRegionPtr region) override;
  void stopMonitoringForRegion(const CLRegionPtr& region) override;
  void requestStateForRegion(const CLRegionPtr& region) override;
  void startRangingBeaconsInRegion(CLBeaconRegionPtr region) override;
  void stopRangingBeaconsInRegion(const CLRegionPtr& region) override;
  bool respondsToRequestAlwaysAuthorization() const override { return true; }
  void requestAlwaysAuthorization() override;
  void startMonitoringSignificantLocationChanges() override;

  const std::shared_ptr<DelegateGate<CLLocationManagerDelegate>>& gate() const { return gate_; }

  /// Guarded by the service's mutex.
  std::vector<CLBeaconRegionPtr> ranged;

 private:
  std::shared_ptr<BeaconLocationCore> service_;
  std::shared_ptr<DelegateGate<CLLocationManagerDelegate>> gate_ =
      std::make_shared<DelegateGate<CLLocationManagerDelegate>>();
};

}  // namespace platform
