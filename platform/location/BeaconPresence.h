#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/dispatch/Dispatch.h"
#include "platform/location/CLLocationManager.h"
#include "platform/location/iBeaconFrame.h"

namespace platform {

/// Which watched iBeacons were heard when, and what follows for regions and rangings. Knows no queue and no
/// clock: the caller says what time it is, in times that never go back.
///
/// Between two calls this holds: a monitored region is inside exactly while a matching beacon is remembered.
///
/// Threads: one at a time.
class BeaconPresence {
 public:
  /// A monitored region's state was found, or changed.
  struct Change {
    CLRegionPtr region;
    CLRegionState before;
    CLRegionState now;
  };
  using Changes = std::vector<Change>;

  const std::vector<CLRegionPtr>& regions() const { return regions_; }
  bool isMonitored(const CLRegionPtr& region) const;
  /// Replaces a region of the same identifier. False, and no effect, when there are too many.
  bool addRegion(const CLRegionPtr& region);
  void removeRegion(const std::string& identifier);
  /// The UUIDs to listen for on account of rangings.
  void setRangedUUIDs(std::set<NSUUID> uuids);

  /// While the radio listens its silence means something, for each UUID from the first such call on.
  void startListening(dispatch_time_t now);
  void stopListening() { listeningSince_.reset(); }
  /// Forgets every beacon and every state.
  void forget();

  /// True when the beacon was not remembered. Beacons of other UUIDs and frames heard while nobody listens
  /// are passed over.
  bool hear(const iBeaconFrame& frame, int64_t rssi, dispatch_time_t now, Changes& changes);
  /// Forgets beacons that were silent too long and brings the states up to date.
  void check(dispatch_time_t now, Changes& changes);
  /// When to check again, if silence can change anything.
  std::optional<dispatch_time_t> nextCheck(dispatch_time_t now) const;

  CLRegionState state(const CLRegionPtr& region, dispatch_time_t now) const;
  /// The ranging report of the current second, nearest first, what was not measured last.
  std::vector<CLBeacon> range(const CLBeaconRegion& region, dispatch_time_t now) const;
  /// Begins a new second for the mean signal strengths.
  void beginSecond() { ++second_; }

 private:
  struct Heard {
    dispatch_time_t last{};
    int8_t measuredPower = 0;  ///< of the newest frame
    uint64_t second = 0;       ///< which second the sum belongs to
    int64_t rssiSum = 0;
    int64_t measured = 0;
  };
  struct Watch {
    std::optional<dispatch_time_t> since;       ///< when it was first listened for
    std::unordered_map<uint32_t, Heard> heard;  ///< by major and minor
  };

  const Watch* watchOf(const CLBeaconRegion& region) const;
  void updateWatches();
  bool isOver(const Heard& heard, dispatch_time_t now) const;
  CLRegionState evaluate(const CLBeaconRegion& region, dispatch_time_t now) const;
  std::optional<dispatch_time_t> exitTime(const CLBeaconRegion& region) const;
  void setState(const CLRegionPtr& region, CLRegionState state, Changes& changes);

  std::vector<CLRegionPtr> regions_;
  std::map<std::string, CLRegionState> states_;  ///< by identifier
  std::set<NSUUID> ranged_;
  std::map<NSUUID, Watch> watches_;
  std::optional<dispatch_time_t> listeningSince_;
  uint64_t second_ = 1;
};

}  // namespace platform
