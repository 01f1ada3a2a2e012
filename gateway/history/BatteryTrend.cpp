#include "gateway/history/BatteryTrend.h"

namespace brenloft {
namespace {

using Days = std::chrono::duration<double, std::chrono::days::period>;

constexpr std::chrono::days kLeastTrend{7};
constexpr double kNewBattery = 10;  // percent up from one day to the next

}  // namespace

std::optional<BatteryTrend> batteryTrend(const std::vector<HistoryPoint>& days) {
  if (days.empty()) return std::nullopt;
  std::size_t first = 0;
  for (std::size_t i = 1; i < days.size(); ++i)
    if (days[i].mean >= days[i - 1].mean + kNewBattery) first = i;
  const auto span = days.back().start - days[first].start;
  if (span < kLeastTrend) return std::nullopt;
  return BatteryTrend{(days.back().mean - days[first].mean) / Days(span).count(), days[first].start};
}

platform::Result<std::optional<BatteryTrend>> readBatteryTrend(HistoryReader& reader, const Reading& latest) {
  if (!latest.shown.battery) return std::optional<BatteryTrend>();
  const HistorySpan span{latest.heard - kTrendSpan, latest.heard + std::chrono::seconds(1)};
  const auto days = reader.pieces(latest.beacon, Quantity::battery, span, std::chrono::hours(24));
  if (!days) return days.error();
  return batteryTrend(*days);
}

}  // namespace brenloft
