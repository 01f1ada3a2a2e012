#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/location/CLLocationManager.h"

namespace platform {

/// Beacon regions found in the advertisements that a central hears.
///
/// A region is inside from the first matching iBeacon frame, outside when the radio has listened for 30
/// seconds without one, and unknown until then. A radio that cannot listen changes no state. The first state
/// that is found is reported as a state; each later crossing is reported as a state and then as entry or
/// exit, unless the region asks not to be told of that crossing. A region that is not a beacon region stays
/// unknown.
///
/// Each ranging reports once a second, also when it hears nothing. A report has the beacons of the region's
/// UUID (and major and minor, when the region has them), nearest first by path loss: measured power minus
/// mean rssi. Each has the mean rssi of that second. A beacon that was not heard or not measured in it has 0
/// and comes last; one that was not heard for ten seconds is left out.
///
/// All managers of an application share the monitored regions. Crossings reach every manager's delegate,
/// answers reach the manager that asked, ranging reports the manager that ranges. Of a region that was
/// stopped or replaced nothing more is reported, not even that it started or what was asked while it was
/// monitored. The 21st region fails. While the authorization is neither always nor when-in-use, or location
/// services are switched off, nothing is heard and nothing but the authorization is reported; states are then
/// forgotten.
///
/// Threads: every operation may be called from any thread. Callbacks arrive on the main queue of the dispatch
/// service. Once a manager is destroyed, or its delegate replaced, no callback to it begins; either waits for
/// one that runs on another thread. The radio is used only while something is monitored or ranged.
class BRL_EXPORT BeaconLocationService : public CLLocationService {
 public:
  static constexpr std::size_t kMaximumRegions = 20;
  static constexpr std::chrono::seconds kExitDelay{30};
  static constexpr std::chrono::seconds kRangingPeriod{1};
  static constexpr std::chrono::seconds kRangingMemory{10};
  /// The code of the error that a region beyond the last one fails with.
  static constexpr int kRegionMonitoringFailure = 5;

  /// Changes the authorization as the user would: stored, acted upon, and told to every manager. The same
  /// status again has no effect.
  virtual void setAuthorizationStatus(CLAuthorizationStatus status) = 0;
  virtual void setLocationServicesEnabled(bool enabled) = 0;
};

struct BeaconLocationOptions {
  std::shared_ptr<BluetoothService> bluetooth{};
  std::shared_ptr<DispatchService> dispatch{};
  /// The status to begin with.
  CLAuthorizationStatus authorization = CLAuthorizationStatus::authorizedAlways;
  bool locationServicesEnabled = true;
  /// What the user answers when asked; without one the question stays open.
  std::optional<CLAuthorizationStatus> answerToRequest = CLAuthorizationStatus::authorizedAlways;
  /// Called after each change, on the thread that made it, so that it can be kept for the next start: one
  /// call at a time, in the order of the changes. It must not change the authorization itself.
  std::function<void(CLAuthorizationStatus)> storeAuthorization{};
};

BRL_EXPORT std::shared_ptr<BeaconLocationService> makeBeaconLocationService(BeaconLocationOptions options);

}  // namespace platform
