#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "platform/foundation/Date.h"
#include "platform/location/BeaconLocationService.h"

namespace brenloft {

/// Finds in the ranging reports which iBeacons have left while others stayed, and which of these returned.
/// The library tells of a loss only when all of them have gone. Seconds without a report do not count as
/// silence.
///
/// Threads: one call at a time.
class Departures {
 public:
  /// A report keeps a beacon for so long, so that a shorter silence does not show.
  static constexpr auto kLeastSilence = platform::BeaconLocationService::kRangingMemory;

  struct Change {
    std::shared_ptr<BRLBeaconDataModel> beacon;
    bool hasLeft;  ///< else it has returned
  };

  /// `silence` is what it takes to have left, to the second.
  explicit Departures(std::chrono::microseconds silence) : silence_(silence) {}

  /// At the end of a report; in the order of the list.
  std::vector<Change> ranged(platform::Date time, const BRLRecordList& records);
  /// The library itself has reported this beacon.
  void reported(const BRLBeaconDataModel& beacon) { left_.erase(&beacon); }
  /// Whether it is silent, of what the library holds for present.
  bool hasLeft(const BRLBeaconDataModel& beacon) const { return left_.contains(&beacon); }
  /// The radio was away.
  void interrupt() { lastReport_.reset(); }

 private:
  const std::chrono::microseconds silence_;
  std::optional<platform::Date> lastReport_;
  platform::Date listeningSince_;
  std::set<const BRLBeaconDataModel*> left_;  // the list keeps them
};

}  // namespace brenloft
