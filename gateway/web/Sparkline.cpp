#include "gateway/web/Sparkline.h"

#include <algorithm>
#include <limits>

#include <fmt/format.h>

namespace brenloft::web {
namespace {

using platform::Date;

constexpr double kWide = 120;
constexpr double kHigh = 24;
constexpr double kMargin = 2;
constexpr double kLeastRange = 200;  // hundredths of a degree: a calm line is a flat one

// Upper limits of the temperature: what is flat far below is well.
std::vector<int32_t> limitsOf(const PageBeacon& beacon) {
  std::vector<int32_t> limits;
  for (const AlarmRule& rule : beacon.rules)
    if (rule.quantity == AlarmRule::Quantity::temperature && rule.above) limits.push_back(*rule.above);
  return limits;
}

class Drawing {
 public:
  Drawing(const PageModel& page, const PageBeacon& beacon)
      : since_(page.recent.since), page_(page), beacon_(beacon), limits_(limitsOf(beacon)) {
    double lowest = std::numeric_limits<double>::max();
    double highest = std::numeric_limits<double>::lowest();
    for (const HistoryPoint& point : beacon.recent.points) {
      lowest = std::min<double>(lowest, point.minimum);
      highest = std::max<double>(highest, point.maximum);
    }
    for (const int32_t limit : limits_) {
      lowest = std::min<double>(lowest, limit);
      highest = std::max<double>(highest, limit);
    }
    const double spread = std::max(highest - lowest, kLeastRange) - (highest - lowest);
    lowest_ = lowest - spread / 2;
    highest_ = highest + spread / 2;
  }

  std::string svg() {
    if (beacon_.recent.points.empty())
      for (const HistorySpan& present : beacon_.presence) bar("in", present, kHigh / 2 - 3, 6);
    for (const HistorySpan& outage : page_.outages) bar("ra", outage, 0, kHigh);
    if (!beacon_.recent.points.empty()) drawLines();
    return fmt::format(
        R"(<svg class="sp" viewBox="0 0 {} {}" preserveAspectRatio="none" aria-hidden="true">{}</svg>)",
        kWide, kHigh, parts_);
  }

 private:
  double across(Date date) const {
    return std::clamp((date - since_) / std::chrono::duration<double, std::micro>(page_.now() - since_), 0.0,
                      1.0) *
           kWide;
  }
  double down(double value) const {
    return kMargin + (highest_ - value) / (highest_ - lowest_) * (kHigh - 2 * kMargin);
  }

  void path(std::string_view css, const std::string& data) {
    if (!data.empty()) parts_ += fmt::format(R"(<path class="{}" d="{}"/>)", css, data);
  }
  void bar(std::string_view css, const HistorySpan& span, double top, double height) {
    if (span.until <= since_) return;
    const double left = across(span.since);
    path(css, fmt::format("M{:.1f} {:.1f}h{:.1f}v{:.1f}H{:.1f}z", left, top,
                          std::max(across(span.until) - left, .5), height, left));
  }

  void drawLines() {
    for (const int32_t limit : limits_) path("lim", fmt::format("M0 {:.1f}H{}", down(limit), kWide));
    const auto& [points, breaks] = beacon_.recent;
    std::string band;
    std::string line;
    for (std::size_t first = 0; first < points.size();) {
      const auto next = std::ranges::upper_bound(breaks, first);
      const std::size_t last = next == breaks.end() ? points.size() : *next;
      addRun(first, last, band, line);
      first = last;
    }
    path("band", band);
    path("line", line);
    const Reading& latest = *beacon_.latest;
    if (latest.heard >= since_ && latest.shown.temperature)
      path("end", fmt::format("M{:.1f} {:.1f}h0", across(latest.heard), down(*latest.shown.temperature)));
  }

  // An unbroken run of points: the mean, and around it from the lowest to the highest.
  void addRun(std::size_t first, std::size_t last, std::string& band, std::string& line) {
    const auto& points = beacon_.recent.points;
    const auto at = [&](std::size_t i) { return across(points[i].start + page_.recentWidth / 2); };
    for (std::size_t i = first; i < last; ++i) {
      line += fmt::format("{}{:.1f} {:.1f}", i == first ? 'M' : 'L', at(i), down(points[i].mean));
      band += fmt::format("{}{:.1f} {:.1f}", i == first ? 'M' : 'L', at(i), down(points[i].maximum));
    }
    if (last - first == 1) line += "h.5";
    for (std::size_t i = last; i-- > first;)
      band += fmt::format("L{:.1f} {:.1f}", at(i), down(points[i].minimum));
    band += 'z';
  }

  const Date since_;
  const PageModel& page_;
  const PageBeacon& beacon_;
  const std::vector<int32_t> limits_;
  double lowest_ = 0;
  double highest_ = 0;
  std::string parts_;
};

}  // namespace

std::string sparkline(const PageModel& page, const PageBeacon& beacon) {
  return Drawing(page, beacon).svg();
}

}  // namespace brenloft::web
