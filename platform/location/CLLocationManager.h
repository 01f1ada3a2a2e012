#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSUUID.h"

namespace platform {

// The location service, as far as beacon regions need it.
//
// Threads: operations may be called from any thread; every callback arrives on the thread that made the
// manager, that is, through its run loop: the main queue. No callback is made from inside an operation.
// Implementers: at most 20 regions are monitored; a newly monitored region replaces a monitored one of the
// same identifier.

enum class CLRegionState : int { unknown = 0, inside = 1, outside = 2 };

enum class CLAuthorizationStatus : int {
  notDetermined = 0,
  restricted = 1,
  denied = 2,
  authorizedAlways = 3,
  authorizedWhenInUse = 4,
};

/// A named place that can be monitored. Regions do not change once they are handed to the service.
class BRL_EXPORT CLRegion {
 public:
  explicit CLRegion(std::string identifier) : identifier_(std::move(identifier)) {}
  virtual ~CLRegion() = default;
  const std::string& identifier() const { return identifier_; }
  /// For diagnostics: "CLRegion (identifier:'X')".
  virtual std::string description() const;

  bool notifyOnEntry() const { return notifyOnEntry_; }
  bool notifyOnExit() const { return notifyOnExit_; }
  void setNotifyOnEntry(bool notify) { notifyOnEntry_ = notify; }
  void setNotifyOnExit(bool notify) { notifyOnExit_ = notify; }

 private:
  std::string identifier_;
  bool notifyOnEntry_ = true;
  bool notifyOnExit_ = true;
};
using CLRegionPtr = std::shared_ptr<const CLRegion>;

/// All iBeacons of a proximity UUID, of a major of it, or one of its beacons; an absent number means any.
class BRL_EXPORT CLBeaconRegion final : public CLRegion {
 public:
  CLBeaconRegion(const NSUUID& proximityUUID, std::string identifier);
  CLBeaconRegion(const NSUUID& proximityUUID, uint16_t major, std::string identifier);
  CLBeaconRegion(const NSUUID& proximityUUID, uint16_t major, uint16_t minor, std::string identifier);

  const NSUUID& proximityUUID() const { return proximityUUID_; }
  std::optional<uint16_t> major() const { return major_; }
  std::optional<uint16_t> minor() const { return minor_; }
  /// "CLBeaconRegion (identifier:'X', uuid:U, major:M, minor:N)", absent numbers as "(null)".
  std::string description() const override;

  bool notifyEntryStateOnDisplay() const { return notifyEntryStateOnDisplay_; }
  void setNotifyEntryStateOnDisplay(bool notify) { notifyEntryStateOnDisplay_ = notify; }

 private:
  NSUUID proximityUUID_;
  std::optional<uint16_t> major_;
  std::optional<uint16_t> minor_;
  bool notifyEntryStateOnDisplay_ = false;
};
using CLBeaconRegionPtr = std::shared_ptr<const CLBeaconRegion>;

/// One beacon of a ranging report.
struct CLBeacon {
  NSUUID proximityUUID{};
  uint16_t major = 0;
  uint16_t minor = 0;
  int64_t rssi = 0;  ///< dBm, 0 when it could not be measured
};

struct CLError {
  int code = 0;
  std::string description{};
};

class CLLocationManager;

class BRL_EXPORT CLLocationManagerDelegate {
 public:
  virtual ~CLLocationManagerDelegate() = default;
  virtual void locationManager_didChangeAuthorizationStatus(CLLocationManager& manager, int32_t status) = 0;
  virtual void locationManager_didStartMonitoringForRegion(CLLocationManager& manager,
                                                           const CLRegionPtr& region) = 0;
  virtual void locationManager_monitoringDidFailForRegion_withError(CLLocationManager& manager,
                                                                    const CLRegionPtr& region,
                                                                    const CLError& error) = 0;
  virtual void locationManager_didFailWithError(CLLocationManager& manager, const CLError& error) = 0;
  virtual void locationManager_didEnterRegion(CLLocationManager& manager, const CLRegionPtr& region) = 0;
  virtual void locationManager_didExitRegion(CLLocationManager& manager, const CLRegionPtr& region) = 0;
  virtual void locationManager_didDetermineState_forRegion(CLLocationManager& manager, CLRegionState state,
                                                           const CLRegionPtr& region) = 0;
  virtual void locationManager_didRangeBeacons_inRegion(CLLocationManager& manager,
                                                        const std::vector<CLBeacon>& beacons,
                                                        const CLBeaconRegionPtr& region) = 0;
};

class BRL_EXPORT CLLocationManager {
 public:
  virtual ~CLLocationManager() = default;

  /// Not owned; null for none. The callback with the authorization follows soon after the manager was made.
  virtual void setDelegate(CLLocationManagerDelegate* delegate) = 0;
  /// The regions that the application monitors now, of every kind and identifier.
  virtual std::vector<CLRegionPtr> monitoredRegions() const = 0;
  virtual void startMonitoringForRegion(CLRegionPtr region) = 0;
  /// Regions are told apart by their identifier.
  virtual void stopMonitoringForRegion(const CLRegionPtr& region) = 0;
  virtual void requestStateForRegion(const CLRegionPtr& region) = 0;
  /// One identifier and proximity UUID is one ranging; starting it again replaces it.
  virtual void startRangingBeaconsInRegion(CLBeaconRegionPtr region) = 0;
  /// Ends every ranging of this manager under the region's identifier or, of a beacon region, of its
  /// proximity UUID.
  virtual void stopRangingBeaconsInRegion(const CLRegionPtr& region) = 0;
  virtual bool respondsToRequestAlwaysAuthorization() const = 0;
  virtual void requestAlwaysAuthorization() = 0;
  virtual void startMonitoringSignificantLocationChanges() = 0;
};

class BRL_EXPORT CLLocationService {
 public:
  virtual ~CLLocationService() = default;
  virtual bool locationServicesEnabled() const = 0;
  virtual CLAuthorizationStatus authorizationStatus() const = 0;
  virtual std::unique_ptr<CLLocationManager> makeLocationManager() = 0;
};

}  // namespace platform
