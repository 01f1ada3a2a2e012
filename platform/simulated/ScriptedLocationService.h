#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/location/CLLocationManager.h"

namespace platform {

/// A location service that knows no place: it records what is asked of it and reports what it is told to.
///
/// Of its own accord it only keeps the monitored regions (a region replaces one of the same identifier) and
/// reports the authorization once to each new manager. Everything else comes from the script, and reaches the
/// delegates of all managers.
///
/// Threads: any. Reports arrive on the main queue, or, when asked for, before the call returns on the thread
/// that calls, so that a test can let them meet with other threads' work.
class BRL_EXPORT ScriptedLocationService : public CLLocationService {
 public:
  enum class Delivery { mainQueue, callingThread };

  /// One call of an application: the selector ("startMonitoringForRegion:") and the region, if it has one.
  struct Operation {
    std::string name{};
    CLRegionPtr region{};
  };

  static std::shared_ptr<ScriptedLocationService> make(
      std::shared_ptr<DispatchService> dispatch,
      CLAuthorizationStatus authorization = CLAuthorizationStatus::authorizedAlways);

  /// Everything asked for so far, in order; questions that change nothing are not recorded.
  virtual std::vector<Operation> operations() const = 0;
  /// The same without the regions.
  virtual std::vector<std::string> operationNames() const = 0;
  virtual void clearOperations() = 0;

  virtual void setMonitoredRegions(std::vector<CLRegionPtr> regions) = 0;
  virtual void setLocationServicesEnabled(bool enabled) = 0;
  virtual void setRespondsToRequestAlwaysAuthorization(bool responds) = 0;
  /// Sets the status without a report.
  virtual void setAuthorizationStatus(CLAuthorizationStatus status) = 0;

  /// Sets the status and reports it.
  virtual void changeAuthorization(CLAuthorizationStatus status, Delivery delivery = Delivery::mainQueue) = 0;
  virtual void startedMonitoring(CLRegionPtr region, Delivery delivery = Delivery::mainQueue) = 0;
  virtual void monitoringFailed(CLRegionPtr region, CLError error,
                                Delivery delivery = Delivery::mainQueue) = 0;
  virtual void failed(CLError error, Delivery delivery = Delivery::mainQueue) = 0;
  virtual void entered(CLRegionPtr region, Delivery delivery = Delivery::mainQueue) = 0;
  virtual void exited(CLRegionPtr region, Delivery delivery = Delivery::mainQueue) = 0;
  virtual void determinedState(CLRegionState state, CLRegionPtr region,
                               Delivery delivery = Delivery::mainQueue) = 0;
  virtual void ranged(std::vector<CLBeacon> beacons, CLBeaconRegionPtr region,
                      Delivery delivery = Delivery::mainQueue) = 0;
};

}  // namespace platform
