#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "BrenloftSDK/BRLContextManagerDelegate.h"
#include "BrenloftSDK/BRLDataManager.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "BrenloftSDK/BRLSensorFrame.h"
#include "BrenloftSDK/BRLTimer.h"
#include "BrenloftSDK/BrenloftSDK_vers.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/Mutex.h"
#include "platform/foundation/TextArgument.h"
#include "platform/location/CLLocationManager.h"

extern "C" {
/// 2; for applications.
BRL_EXPORT extern const int64_t NearestBeaconSensorFindingBuffer;
/// "SaftyRegionIdentifier": the identifier of a region that the application may register, and the settings
/// key under which its last state is kept.
BRL_EXPORT extern const char* const SAFETY_REGION_IDENTIFIER;
/// "BeaconExitTime": the settings key of the exit time.
BRL_EXPORT extern const char* const kBeaconExitTime;
/// "BrenloftBeaconGroup": the identifier of every region that the library builds.
BRL_EXPORT extern const char* const kBRLBeaconRegionID;
}

/// The facade: holds what to search for, starts and stops the search, keeps one record per beacon and reports
/// to one delegate.
///
///     BRLContextManager::Class::brlWithProximityUUID("FFF0");
///     BRLContextManager::Class::setBeaconType(1);
///     BRLContextManager::Class::setDelegate(&application);
///     BRLContextManager::Class::startLeScan();
///
/// The application then runs its main queue (`platform::RealTimeDispatch::run` or `poll`).
///
/// What has no class operation is an operation of the manager itself. `brlWithProximityUUID` returns the
/// manager, every operation of the delegate gets it, and
/// `dynamic_cast<BRLContextManager*>(BRLContextManager::Class::shareInstance())` gives it at any time.
///
/// When is a sensor beacon found lost? Each has a timer of `beaconExitTime`, which every advertisement pushes
/// back. When any of these timers fires, all records are checked:
///  1. A beacon that was first heard while no other was known gets its timer with its second advertisement.
///     If it is heard only once, another beacon's timer or `stop` finds it lost, or nothing does.
///  2. Whole seconds are compared. So another beacon's timer may find it lost up to a second early.
///  3. Only an advertisement makes it present again. A status that the application sets starts no timer.
///
/// Thread safety: every operation may be called from any thread.
///  1. Configuration is atomic; the UUID text has its own lock, and so has the exit time with its setting.
///  2. Records and their list keep the promises of their own headers.
///  3. `seenMutex_` guards the seen cache, `regionsMutex_` what is asked of the location service, so that
///     `stop` and the service's callbacks do not mix. Neither is held while a delegate or a completion runs.
///  4. When two threads call `start` and `stop` of the iBeacon search, the call that comes last holds.
class BRL_EXPORT BRLContextManager final : public BRLDataManager,
                                           private platform::CLLocationManagerDelegate,
                                           private platform::CBCentralManagerDelegate {
 public:
  /// Class operations. Each takes the shared instance and calls its operation. The log and tag operations of
  /// `BRLDataManager::Class` reach the context manager's shared instance here.
  ///
  /// An application may ask `BRLDataManager` for its shared instance first. Then that plain data manager is
  /// the shared instance here, too. Log and tag operations work on it; an operation that only a context
  /// manager has ends the process, with a line that names the operation.
  struct BRL_EXPORT Class : BRLDataManagerClassOperations<BRLContextManager> {
    /// +[BRLContextManager shareInstance]
    static BRLDataManager* shareInstance();
    /// +[BRLContextManager brlWithProximityUUID:]
    static BRLContextManager* brlWithProximityUUID(platform::TextArgument uuid);
    /// +[BRLContextManager brlWithProximityUUID:major:]
    static BRLContextManager* brlWithProximityUUID_major(platform::TextArgument uuid, int64_t major);
    /// +[BRLContextManager brlWithProximityUUID:major:minor:]
    /// Sets the UUID, then the major to `major` and then to `minor`; the minor is set only by the instance's
    /// `setBeaconMinor`.
    static BRLContextManager* brlWithProximityUUID_major_minor(platform::TextArgument uuid, int64_t major,
                                                               int64_t minor);
    /// +[BRLContextManager setBeaconType:]
    static void setBeaconType(uint64_t beaconType);
    /// +[BRLContextManager setBeaconGroupType:]
    static void setBeaconGroupType(int64_t beaconGroupType);
    /// +[BRLContextManager setBeaconExitTime:]
    /// Seconds; 0 or less is logged and changes nothing.
    static void setBeaconExitTime(double seconds);
    /// +[BRLContextManager getBeaconExitTime]
    static double getBeaconExitTime();
    /// +[BRLContextManager setDelegate:]
    static void setDelegate(BRLContextManagerDelegate* delegate);
    /// +[BRLContextManager startLeScan]
    static void startLeScan();
    /// +[BRLContextManager stopLeScan]
    static void stopLeScan();
    /// +[BRLContextManager isLeScan]
    static bool isLeScan();
    /// +[BRLContextManager clearRemainingTimers]
    static void clearRemainingTimers();
  };

  ~BRLContextManager() override;

  // Properties.

  /// Which search `start` runs: 1 = sensor advertisements, 2 = iBeacon regions, any other = none.
  uint64_t beaconType() const { return beaconType_; }
  void setBeaconType(uint64_t beaconType) { beaconType_ = beaconType; }
  /// How regions are built and iBeacons told apart: 0 = UUID, 1 = UUID and major, 2 = UUID, major and minor.
  int64_t beaconGroupType() const { return beaconGroupType_; }
  void setBeaconGroupType(int64_t beaconGroupType) { beaconGroupType_ = beaconGroupType; }
  BRLContextManagerDelegate* delegate() const { return delegate_; }
  /// Not owned; null for none. A call that has begun on another thread may still run after `setDelegate` has
  /// returned: keep the earlier delegate until the queues are quiet, or to the end of the process.
  void setDelegate(BRLContextManagerDelegate* delegate) { delegate_ = delegate; }
  /// For regions of the application's own.
  platform::CLLocationManager& locationManager() const { return *locationManager_; }
  /// True from `start` until `stop`.
  bool isStart() const { return isStart_; }
  void setIsStart(bool isStart) { isStart_ = isStart; }
  const BRLRecordList& rangeBeaconSensors() const { return rangeBeaconSensors_; }
  /// Seconds of silence after which a present beacon counts as lost.
  double beaconExitTime() const { return beaconExitTime_; }
  /// -[BRLContextManager setBeaconExitTime:]
  /// A changed value goes into the settings at once, whatever it is. A 0 becomes 5 at the next launch.
  void setBeaconExitTime(double seconds);
  /// The service to scan for in sensor mode (absent or "": every device), the proximity UUID in iBeacon mode.
  std::optional<std::string> beaconUUID() const;
  void setBeaconUUID(platform::TextArgument uuid);
  int64_t beaconMajor() const { return beaconMajor_; }
  void setBeaconMajor(int64_t major) { beaconMajor_ = major; }
  int64_t beaconMinor() const { return beaconMinor_; }
  void setBeaconMinor(int64_t minor) { beaconMinor_ = minor; }

  /// -[BRLContextManager getBeaconExitTime]
  double getBeaconExitTime() const { return beaconExitTime_; }
  /// -[BRLContextManager start]
  /// Starts the search of `beaconType`; one that runs is stopped first, in full.
  ///
  /// The iBeacon search begins with the authorization "always" or "when in use". When the authorization
  /// changes later, the search goes on by itself for "always" only: after a change to "when in use", call
  /// `start` again.
  void start();
  /// -[BRLContextManager stop]
  /// Ends either search, marks every present record lost and reports it. Records, timers and the
  /// configuration stay.
  ///
  /// The monitoring of every region ends, also of the application's own, and so does all ranging of their
  /// UUIDs. What these regions still report starts nothing. Ranging goes on only where the application itself
  /// has stopped monitoring the region that the ranging began from.
  ///
  /// `start` leaves the scan to the scanner queue. A `stop` that comes before that queue has begun the scan
  /// does not prevent it: the radio then scans, and sensors are reported, until the next `stop`.
  void stop();
  /// -[BRLContextManager isLeScan]
  bool isLeScan() const { return isStart_; }

  /// -[BRLContextManager BrenloftStart]
  /// Starts the scan on the scanner queue.
  void BrenloftStart();
  /// -[BRLContextManager responseDataSetting:]
  /// The ten readings of manufacturer data; nothing when it is shorter than 22 octets.
  std::optional<platform::Dictionary> responseDataSetting(platform::DataView manufacturerData) const;
  /// -[BRLContextManager clearRemainingTimers]
  /// Cancels every lost timer. Only another beacon's check or `stop` then finds these beacons lost. After
  /// such a check they have timers again.
  void clearRemainingTimers();

  /// -[BRLContextManager BeaconStart]
  /// The authorization gate of the iBeacon search.
  void BeaconStart();
  /// -[BRLContextManager updateMonitoring]
  /// Submits the regions of the configuration that are not monitored yet.
  void updateMonitoring();

 private:
  using Record = std::shared_ptr<BRLBeaconDataModel>;

  // One entry of the seen cache.
  struct SeenBeacon {
    Record beacon_info;
    std::shared_ptr<BRLTimer> on_lost_timer;
    bool isCleared = false;  // by clearRemainingTimers: no timer until the entry is removed
  };
  struct SeenHash {
    using is_transparent = void;
    size_t operator()(const BRLHashedText& key) const { return key.hash; }
  };
  struct SeenEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return a == b; }
  };

  BRLContextManager();
  static BRLDataManager* allocInit();
  static BRLContextManager* sharedContextManager(const char* operation);

  void appendBeacon(const Record& record);

  // Delegate calls, each only when the delegate responds to it. True when it was called. An exception ends
  // the process here, since a caller could not make good what it left half done.
  bool reportBeacon(const Record& record) noexcept;
  void reportEmergency(const Record& record) noexcept;
  void reportOctets(platform::DataView manufacturerData) noexcept;
  void reportRanged() noexcept;
  BRLContextManagerDelegate* delegateFor(BRLDelegateOperation operation) const;

  // The scan (BRLContextManager+Scanning.cpp).
  void startScanning();
  void refreshKnownBeacon(const Record& record, int64_t rssi, const BRLSensorFrame& frame);
  bool refreshMatches(const BRLHashedText& key, int64_t rssi, const BRLSensorFrame& frame);
  void addSensorBeacon(const std::string& key, platform::Date heard, int64_t rssi,
                       const BRLSensorFrame& frame);
  void keepLostTimer(const BRLHashedText& key, const Record& record);
  std::shared_ptr<BRLTimer> makeLostTimer();
  void replaceOvertakenTimer(const BRLTimer& timer);
  void checkLost();
  bool loseIfSilent(BRLBeaconDataModel& record, int64_t cutoff, int64_t entrySecond);
  void centralManagerDidUpdateState(platform::CBCentralManager& central) override;
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      platform::CBCentralManager& central, const platform::CBPeripheral& peripheral,
      const platform::CBAdvertisementData& advertisementData, int64_t rssi) override;

  // Regions (BRLContextManager+Regions.cpp). A condition is asked with `regionsMutex_` held.
  using Condition = std::function<bool()>;
  void passLocationGate(const Condition& isWanted);
  void submitRegions(const Condition& isWanted);
  void addMissingRegions(const platform::NSUUID& uuid, const std::string& text);
  void endRegions();
  bool hasEnded(const platform::CLRegionPtr& region) const;
  void requestStates();
  bool startRanging(const platform::CLBeaconRegionPtr& region);
  void determinedSafetyState(platform::CLRegionState state, const platform::CLRegionPtr& region);
  void leaveRegion();
  void locationManager_didChangeAuthorizationStatus(platform::CLLocationManager& manager,
                                                    int32_t status) override;
  void locationManager_didStartMonitoringForRegion(platform::CLLocationManager& manager,
                                                   const platform::CLRegionPtr& region) override;
  void locationManager_monitoringDidFailForRegion_withError(platform::CLLocationManager& manager,
                                                            const platform::CLRegionPtr& region,
                                                            const platform::CLError& error) override;
  void locationManager_didFailWithError(platform::CLLocationManager& manager,
                                        const platform::CLError& error) override;
  void locationManager_didEnterRegion(platform::CLLocationManager& manager,
                                      const platform::CLRegionPtr& region) override;
  void locationManager_didExitRegion(platform::CLLocationManager& manager,
                                     const platform::CLRegionPtr& region) override;
  void locationManager_didDetermineState_forRegion(platform::CLLocationManager& manager,
                                                   platform::CLRegionState state,
                                                   const platform::CLRegionPtr& region) override;

  // Ranging (BRLContextManager+Ranging.cpp).
  bool refreshRanged(const platform::CLBeacon& beacon, const BRLHashedText& uuid);
  void addRangedBeacon(const platform::CLBeacon& beacon, const std::string& uuid);
  void locationManager_didRangeBeacons_inRegion(platform::CLLocationManager& manager,
                                                const std::vector<platform::CLBeacon>& beacons,
                                                const platform::CLBeaconRegionPtr& region) override;

  const std::shared_ptr<platform::DispatchService> dispatch_;
  std::atomic<uint64_t> beaconType_{0};
  std::atomic<int64_t> beaconGroupType_{0};
  std::atomic<BRLContextManagerDelegate*> delegate_{nullptr};
  std::atomic<bool> isStart_{false};
  std::mutex exitTimeMutex_;  // held by whoever sets it, until it is in the settings
  std::atomic<double> beaconExitTime_{0.0};
  std::atomic<int64_t> beaconMajor_{0};
  std::atomic<int64_t> beaconMinor_{0};

  mutable std::mutex uuidMutex_;
  std::optional<std::string> beaconUUID_;

  BRLRecordList rangeBeaconSensors_;
  const std::shared_ptr<BRLLastHeard> lastHeard_;

  std::mutex regionsMutex_;
  std::vector<std::weak_ptr<const platform::CLRegion>> submittedRegions_;  // since the last `stop`
  std::vector<std::weak_ptr<const platform::CLRegion>> endedRegions_;      // by `stop`

  platform::Mutex seenMutex_;
  std::unordered_map<std::string, SeenBeacon, SeenHash, SeenEqual> seenBRLCache_;

  std::vector<std::string> octetTexts_;  // the scanner queue's, for the next advertisement

  platform::dispatch_queue_t beaconOperationsQueue_;
  std::unique_ptr<platform::CLLocationManager> locationManager_;
  std::unique_ptr<platform::CBCentralManager> centralManager_;
};
