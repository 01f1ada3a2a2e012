#include "gateway/history/Thinner.h"

#include <cstdlib>

namespace brenloft {
namespace {

constexpr std::chrono::hours kLongestSilence{1};

bool isBeyond(const std::optional<int32_t>& band, const std::optional<int32_t>& before,
              const std::optional<int32_t>& now) {
  if (!band || before == now) return false;
  return !before || !now || std::abs(int64_t{*before} - *now) >= *band;
}

}  // namespace

Thinner::Thinner(const HistoryOptions& options)
    : interval_(options.deadband ? options.interval.value_or(kLongestSilence) : options.interval),
      deadband_(options.deadband) {}

bool Thinner::keeps(const Reading& reading, std::optional<Last>& last) const {
  if (!interval_) return true;
  if (last && !isDue(reading, *last) && !hasMoved(reading, *last)) return false;
  last = {reading.heard, reading.rssi, reading.shown};
  return true;
}

bool Thinner::isDue(const Reading& reading, const Last& last) const {
  const bool wasPutBack = reading.heard < last.heard;
  const bool isEmergency = reading.shown.emergency.value_or(0) != 0;
  return wasPutBack || isEmergency || last.shown.emergency.value_or(0) != 0 ||
         reading.heard - last.heard >= *interval_;
}

bool Thinner::hasMoved(const Reading& reading, const Last& last) const {
  if (!deadband_) return false;
  const Quantities& before = last.shown;
  const Quantities& now = reading.shown;
  const HistoryDeadband& band = *deadband_;
  return isBeyond(band.temperature, before.temperature, now.temperature) ||
         isBeyond(band.humidity, before.humidity, now.humidity) ||
         isBeyond(band.battery, before.battery, now.battery) ||
         isBeyond(band.rssi, last.rssi, reading.rssi) ||
         isBeyond(band.acceleration, before.xAccel, now.xAccel) ||
         isBeyond(band.acceleration, before.yAccel, now.yAccel) ||
         isBeyond(band.acceleration, before.zAccel, now.zAccel);
}

}  // namespace brenloft
