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

GapStatistics::Gap GapStatistics::Device::median() const {
  auto sorted = gaps;
  const auto count = static_cast<std::ptrdiff_t>(std::min(gapCount, kGapsKept));
  return medianOf(sorted.begin(), sorted.begin() + count);
}

void GapStatistics::heard(const AdvertisingReport& report) {
  if (isScanResponse(report.kind)) return;
  auto found = devices_.find(report.address);
  if (found == devices_.end()) {
    // Addresses that change come and go without end: better to begin again than to grow.
    if (devices_.size() >= kDevicesKept) devices_.clear();
    devices_.emplace(report.address, Device{.lastHeard = report.time});
    return;
  }
  const Gap gap = report.time - found->second.lastHeard;
  if (gap >= Gap::zero() && gap < kShortestGap) return;
  found->second.lastHeard = report.time;
  if (gap > Gap::zero()) found->second.add(gap);
}

std::optional<GapStatistics::Gap> GapStatistics::usualGap() const {
  std::vector<Gap> medians;
  for (const auto& [address, device] : devices_) {
    if (device.gapCount >= kGapsNeeded) medians.push_back(device.median());
  }
  if (medians.empty()) return std::nullopt;
  return medianOf(medians.begin(), medians.end());
}

std::optional<std::string> ExitTimeWarning::heard(const AdvertisingReport& report) {
  if (isSaid_) return std::nullopt;
  gaps_.heard(report);
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
