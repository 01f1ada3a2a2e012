#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "gateway/history/HistoryReader.h"

namespace brenloft {

/// How a battery empties: from the first of its daily means to the last, since it was changed.
struct BatteryTrend {
  double perDay = 0;     ///< percent; below zero where it empties
  platform::Date since;  ///< the first of those days
};

/// So far back a trend looks.
constexpr std::chrono::days kTrendSpan{90};

/// Of the daily means, in their order; nothing for less than a week. A rise of 10 percent or more from one
/// day to the next is a new battery. Pure.
std::optional<BatteryTrend> batteryTrend(const std::vector<HistoryPoint>& days);
/// The same of a beacon's days before it was heard last.
platform::Result<std::optional<BatteryTrend>> readBatteryTrend(HistoryReader& reader, const Reading& latest);

}  // namespace brenloft
