#include "platform/bluetooth/radios/GapStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace platform {
namespace {

constexpr std::chrono::seconds kCheckEvery{10};
constexpr double kGapsPerExitTime = 3;

template <class Iterator>
GapStatistics::Gap medianOf(Iterator first, Iterator last) {
  const auto middle = first + (last - first) / 2;
  std::nth_element(first, middle, last);
  return *middle;
}

}  // namespace

GapStatistics::Gap GapStatistics::Beacon::median() const {
  auto sorted = gaps;
  const auto count = static_cast<std::ptrdiff_t>(std::min(gapCount, kGapsKept));
  return medianOf(sorted.begin(), sorted.begin() + count);
}

void GapStatistics::heard(const CBUUID& beacon, Date time) {
  auto found = beacons_.find(beacon);
  if (found == beacons_.end()) {
    // Services that change come and go without end: better to begin again than to grow.
    if (beacons_.size() >= kBeaconsKept) beacons_.clear();
    beacons_.emplace(beacon, Beacon{.lastHeard = time});
    return;
  }
  const Gap gap = time - found->second.lastHeard;
  if (gap >= Gap::zero() && gap < kShortestGap) return;
  found->second.lastHeard = time;
  if (gap > Gap::zero()) found->second.add(gap);
}

std::optional<GapStatistics::Gap> GapStatistics::usualGap() const {
  std::vector<Gap> medians;
  for (const auto& [name, beacon] : beacons_) {
    if (beacon.gapCount >= kGapsNeeded) medians.push_back(beacon.median());
  }
  if (medians.empty()) return std::nullopt;
  return medianOf(medians.begin(), medians.end());
}

/// A scan response completes its advertisement but is no sighting of its own.
std::optional<CBUUID> ExitTimeWarning::beaconOf(const AdvertisingReport& report) {
  const auto merged = merger_.merge(report);
  const auto& data = merged->data;
  if (isScanResponse(report.kind) || !data.manufacturerData || !data.serviceUUIDs) return std::nullopt;
  const auto& services = *data.serviceUUIDs;
  if (services.empty()) return std::nullopt;
  const bool isWanted = wanted_.empty() || std::ranges::find_first_of(services, wanted_) != services.end();
  return isWanted ? std::optional(services.front()) : std::nullopt;
}

std::optional<std::string> ExitTimeWarning::heard(const AdvertisingReport& report) {
  if (isSaid_) return std::nullopt;
  const auto beacon = beaconOf(report);
  if (!beacon) return std::nullopt;
  gaps_.heard(*beacon, report.time);
  if (!nextCheck_) nextCheck_ = report.time + kCheckEvery;
  if (report.time < *nextCheck_) return std::nullopt;
  nextCheck_ = report.time + kCheckEvery;
  const auto usual = gaps_.usualGap();
  if (!usual) return std::nullopt;
  const double gap = std::chrono::duration<double>(*usual).count();
  if (exitTime_ >= gap * kGapsPerExitTime) return std::nullopt;
  isSaid_ = true;
  std::array<char, 256> text{};
  std::snprintf(
      text.data(), text.size(),
      "a beacon is usually heard every %.1f s here, but counts as lost after %.1f s: beacons may be "
      "reported lost that are still there; an exit time of %.0f s would be safe",
      gap, exitTime_, std::ceil(gap * kGapsPerExitTime));
  return std::string(text.data());
}

}  // namespace platform
