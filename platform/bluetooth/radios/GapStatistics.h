#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

/// How long a device usually stays unheard between two of its reports: the median over the devices of each
/// one's median gap. Keeps the last gaps of a bounded number of devices.
///
/// Threads: one at a time.
class GapStatistics {
 public:
  using Gap = std::chrono::microseconds;

  /// Scan responses and repetitions on another channel are no gaps.
  void heard(const AdvertisingReport& report);
  /// Nothing until some device was heard often enough to tell.
  std::optional<Gap> usualGap() const;
  std::size_t deviceCount() const { return devices_.size(); }

 private:
  static constexpr std::size_t kGapsKept = 15;
  static constexpr std::size_t kGapsNeeded = 3;
  static constexpr std::size_t kDevicesKept = 4096;
  static constexpr Gap kShortestGap = std::chrono::milliseconds(20);  ///< the shortest advertising interval

  struct Device {
    Date lastHeard;
    std::array<Gap, kGapsKept> gaps{};
    std::size_t gapCount = 0;

    void add(Gap gap) { gaps.at(gapCount++ % kGapsKept) = gap; }
    Gap median() const;
  };

  std::map<BluetoothAddress, Device> devices_;
};

/// Warns once when the exit time is under three times the usual gap: beacons would be taken for lost that are
/// still there.
///
/// Threads: one at a time.
class ExitTimeWarning {
 public:
  explicit ExitTimeWarning(double exitTimeSeconds) : exitTime_(exitTimeSeconds) {}

  /// Takes a report in; the line to print, at most once.
  std::optional<std::string> heard(const AdvertisingReport& report);

 private:
  double exitTime_;
  GapStatistics gaps_;
  std::optional<Date> nextCheck_;
  bool isSaid_ = false;
};

}  // namespace platform
