#pragma once

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/location/CLLocationManager.h"
#include "platform/location/iBeaconFrame.h"

namespace fuzz {

/// What the managers of a location service must be told, worked out the long way: every frame is kept, and
/// everything is looked at again at each step of time.
///
/// Operations say what was asked, `settle` what follows once every queue is empty. Time passes, the radio
/// changes and frames are heard only when all is settled.
class LocationModel {
 public:
  using Lines = std::vector<std::string>;
  /// Everything that can happen by itself happens at a multiple of it.
  static constexpr std::chrono::milliseconds kStep{500};
  static constexpr std::size_t kManagers = 2;

  LocationModel(platform::CLAuthorizationStatus authorization,
                std::optional<platform::CLAuthorizationStatus> answer, bool isRadioOn)
      : authorization_(authorization), answer_(answer), isRadioOn_(isRadioOn) {}

  void addManager(std::size_t manager);
  void removeManager(std::size_t manager);
  void startMonitoring(std::size_t manager, const platform::CLBeaconRegionPtr& region);
  void stopMonitoring(const platform::CLBeaconRegionPtr& region);
  void requestState(std::size_t manager, const platform::CLBeaconRegionPtr& region);
  void startRanging(std::size_t manager, const platform::CLBeaconRegionPtr& region);
  void stopRanging(std::size_t manager, const platform::CLBeaconRegionPtr& region);
  void setAuthorization(platform::CLAuthorizationStatus status);
  void requestAuthorization();
  void setEnabled(bool isEnabled);

  void settle();
  void setRadioOn(bool isOn) { isRadioOn_ = isOn; }
  /// `rssi` is nothing where the radio could not measure it.
  void hear(const platform::iBeaconFrame& frame, std::optional<int> rssi);
  void advance(std::chrono::milliseconds duration);
  /// Time in which no queue runs.
  void skip(std::chrono::milliseconds duration);

  const std::vector<platform::CLBeaconRegionPtr>& monitored() const { return monitored_; }
  bool isListening() const { return listeningSince_.has_value(); }
  /// What a manager was told since the last call.
  Lines takeLines(std::size_t manager);

 private:
  using Time = std::chrono::milliseconds;
  struct Frame {
    Time time;
    unsigned second;
    platform::iBeaconFrame frame;
    std::optional<int> rssi;
  };
  struct Manager {
    bool isThere = false;
    std::vector<platform::CLBeaconRegionPtr> ranged{};
    Lines lines{};
  };
  struct Pending {
    std::size_t manager;
    std::string line;
    bool isAboutAuthorization = false;
    platform::CLBeaconRegionPtr whileMonitored{};
  };

  bool isAllowed() const;
  bool isMonitored(const platform::CLBeaconRegionPtr& region) const;
  bool isRanging() const;
  std::set<platform::NSUUID> wanted() const;
  void forget();
  void forgetUnwanted();
  platform::CLRegionState evaluate(const platform::CLBeaconRegion& region) const;
  Time lastHeard(const platform::iBeaconFrame& frame) const;
  std::string rangingLine(const platform::CLBeaconRegion& region) const;
  void listen();
  void look();
  void lookAtStates();
  void range();
  void tell(const std::string& line);

  platform::CLAuthorizationStatus authorization_;
  const std::optional<platform::CLAuthorizationStatus> answer_;
  bool isEnabled_ = true;
  bool isRadioOn_;
  std::array<Manager, kManagers> managers_;
  std::vector<Pending> pending_;
  std::vector<platform::CLBeaconRegionPtr> monitored_;
  std::map<std::string, platform::CLRegionState> known_;
  std::vector<Frame> frames_;
  Time now_{};
  std::optional<Time> listeningSince_;
  std::map<platform::NSUUID, Time> wantedSince_;  ///< of what was listened for since it was wanted
  std::optional<Time> nextRanging_;
  unsigned second_ = 0;
};

}  // namespace fuzz
