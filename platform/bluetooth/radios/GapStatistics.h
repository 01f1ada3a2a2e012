#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/AdvertisementMerger.h"

namespace platform {

/// How long a beacon usually stays unheard: the median over the beacons of each one's median gap. Keeps the
/// last gaps of a bounded number of beacons.
///
/// Threads: one at a time.
class GapStatistics {
 public:
  using Gap = std::chrono::microseconds;

  /// Repetitions on another channel are no gaps.
  void heard(const CBUUID& beacon, Date time);
  /// Nothing until some beacon was heard often enough to tell.
  std::optional<Gap> usualGap() const;
  std::size_t beaconCount() const { return beacons_.size(); }

 private:
  static constexpr std::size_t kGapsKept = 15;
  static constexpr std::size_t kGapsNeeded = 3;
  static constexpr std::size_t kBeaconsKept = 4096;
  static constexpr Gap kShortestGap = std::chrono::milliseconds(20);  ///< the shortest advertising interval

  struct Beacon {
    Date lastHeard;
    std::array<Gap, kGapsKept> gaps{};
    std::size_t gapCount = 0;

    void add(Gap gap) { gaps.at(gapCount++ % kGapsKept) = gap; }
    Gap median() const;
  };

  std::map<CBUUID, Beacon> beacons_;
};

/// Warns once when the exit time is under three times the usual gap: beacons would be taken for lost that are
/// still there. Counts what a search for sensors goes by: advertisements, merged with the scan response, that
/// have manufacturer data and a wanted service. The first service names the beacon.
///
/// Threads: one at a time.
class ExitTimeWarning {
 public:
  explicit ExitTimeWarning(double exitTimeSeconds) : exitTime_(exitTimeSeconds) {}

  /// Only beacons with one of these services count from here on; all sensors when there are none.
  void want(std::vector<CBUUID> services) { wanted_ = std::move(services); }
  /// Takes a report in; the line to print, at most once.
  std::optional<std::string> heard(const AdvertisingReport& report);

 private:
  std::optional<CBUUID> beaconOf(const AdvertisingReport& report);

  double exitTime_;
  std::vector<CBUUID> wanted_;
  AdvertisementMerger merger_;
  GapStatistics gaps_;
  std::optional<Date> nextCheck_;
  bool isSaid_ = false;
};

}  // namespace platform
