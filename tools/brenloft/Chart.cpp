#include "tools/brenloft/Chart.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "gateway/formats/Decimal.h"
#include "gateway/web/LocalTime.h"

namespace brenloft {
namespace {

constexpr std::size_t kChartRows = 9;  // so that one is in the middle
constexpr std::size_t kLeastColumns = 16;
constexpr std::size_t kColumnsPerTime = 24;
constexpr std::chrono::days kDaysWithoutClock{4};
constexpr std::chrono::minutes kMinutesWithSeconds{10};

// Which dots of a character belong to which of its columns and rows.
struct Glyphs {
  std::size_t across;
  std::size_t down;
  std::string (*text)(unsigned dots);  // bit `x * down + y`
  std::string_view axis, tick, corner, floor, mark;
};

std::string brailleText(unsigned dots) {
  constexpr std::array bits{0x01, 0x02, 0x04, 0x40, 0x08, 0x10, 0x20, 0x80};
  unsigned pattern = 0;
  for (std::size_t i = 0; i < bits.size(); ++i)
    if ((dots >> i & 1U) != 0) pattern |= static_cast<unsigned>(bits[i]);
  if (pattern == 0) return " ";
  // U+2800 and the pattern.
  return {'\xE2', static_cast<char>(0xA0U | pattern >> 6), static_cast<char>(0x80U | (pattern & 0x3FU))};
}

std::string asciiText(unsigned dots) {
  constexpr std::string_view kByDots = " '-|.|||";
  return std::string(1, kByDots[dots]);
}

constexpr Glyphs kBraille{2, 4, brailleText, "│", "┤", "└", "─", "┴"};
constexpr Glyphs kAscii{1, 3, asciiText, "|", "+", "+", "-", "+"};

// From the lowest to the highest line of a chart, in the unit of its values.
struct Scale {
  int64_t low;
  int64_t high;
};

// Round numbers around what was measured, with one in the middle.
Scale scaleFor(int64_t least, int64_t most, int32_t unitSize) {
  // A tenth is nobody's weather.
  for (int64_t decade = std::max(1, unitSize / 10);; decade *= 10)
    for (const int64_t step : {decade, 2 * decade, 5 * decade}) {
      const auto floor = [](int64_t value, int64_t of) { return (value - (value % of + of) % of) / of; };
      const int64_t low = floor(least, step) * step;
      if (low + 4 * step < most) continue;
      const int64_t lower = (low + 4 * step - most) / step / 4 * 2 * step;
      return {low - lower, low - lower + 4 * step};
    }
}

std::string scaleText(int64_t value, int32_t unitSize) {
  if (unitSize == 1) return std::to_string(value);
  std::string text;
  appendHundredths(text, static_cast<int32_t>(value));
  return text;
}

// The dots of one column of them, from the lowest to the highest; none where nothing is drawn.
struct Stroke {
  int64_t low = INT64_MAX;
  int64_t high = INT64_MIN;

  bool isEmpty() const { return low > high; }
  void cover(int64_t from, int64_t to) {
    low = std::min({low, from, to});
    high = std::max({high, from, to});
  }
};

class Plot {
 public:
  Plot(const Chart& chart, const ChartForm& form)
      : chart_(chart), glyphs_(form.isBraille ? kBraille : kAscii) {
    int64_t least = INT64_MAX;
    int64_t most = INT64_MIN;
    for (const HistoryPoint& point : chart.points) {
      least = std::min<int64_t>(least, point.minimum);
      most = std::max<int64_t>(most, point.maximum);
    }
    scale_ = scaleFor(least, most, chart.unitSize);
    for (const int64_t value : {scale_.low, (scale_.low + scale_.high) / 2, scale_.high})
      labelWidth_ = std::max(labelWidth_, scaleText(value, chart.unitSize).size());
    columns_ = std::max(form.width, labelWidth_ + 2 + kLeastColumns) - labelWidth_ - 2;
    strokes_.resize(columns_ * glyphs_.across);
  }

  std::string text() {
    draw();
    std::string text = chart_.title + '\n';
    for (std::size_t row = 0; row < kChartRows; ++row) appendRow(text, row);
    appendTimes(text);
    return text;
  }

 private:
  int64_t dotOf(int64_t value) const {
    const auto dots = static_cast<int64_t>(kChartRows * glyphs_.down - 1);
    return ((value - scale_.low) * dots * 2 + (scale_.high - scale_.low)) / ((scale_.high - scale_.low) * 2);
  }
  std::size_t strokeOf(platform::Date date) const {
    const auto part = std::chrono::duration<double>(date - chart_.span.since) /
                      std::chrono::duration<double>(chart_.span.until - chart_.span.since);
    const auto last = static_cast<double>(strokes_.size() - 1);
    return static_cast<std::size_t>(
        std::clamp(std::floor(part * static_cast<double>(strokes_.size())), 0.0, last));
  }

  void draw() {
    const HistoryPoint* before = nullptr;
    for (std::size_t i = 0; i < chart_.points.size(); ++i) {
      const HistoryPoint& point = chart_.points[i];
      const bool isBroken = std::ranges::binary_search(chart_.breaks, i);
      if (before != nullptr && !isBroken) join(*before, point);
      strokes_[strokeOf(point.start)].cover(dotOf(point.minimum), dotOf(point.maximum));
      before = &point;
    }
  }

  // A straight line over the strokes from one to the other.
  void join(const HistoryPoint& from, const HistoryPoint& to) {
    const std::size_t begin = strokeOf(from.start);
    const std::size_t end = strokeOf(to.start);
    if (begin == end) return;
    const auto level = [&](std::size_t stroke) {
      const double part = static_cast<double>(stroke - begin) / static_cast<double>(end - begin);
      return dotOf(std::llround(from.mean + (to.mean - from.mean) * part));
    };
    for (std::size_t stroke = begin + 1; stroke <= end; ++stroke) {
      // Beside the dot before, not at it.
      const int64_t before = level(stroke - 1);
      const int64_t here = level(stroke);
      strokes_[stroke].cover(here, before + (before < here ? 1 : before > here ? -1 : 0));
    }
  }

  void appendRow(std::string& text, std::size_t row) const {
    const bool isLabelled = row % (kChartRows / 2) == 0;
    const int64_t value = scale_.high - (scale_.high - scale_.low) * static_cast<int64_t>(row) /
                                            static_cast<int64_t>(kChartRows - 1);
    std::string line = fmt::format("{:>{}} {}", isLabelled ? scaleText(value, chart_.unitSize) : "",
                                   labelWidth_, isLabelled ? glyphs_.tick : glyphs_.axis);
    for (std::size_t column = 0; column < columns_; ++column) line += glyphs_.text(dotsAt(column, row));
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }

  unsigned dotsAt(std::size_t column, std::size_t row) const {
    unsigned dots = 0;
    for (std::size_t x = 0; x < glyphs_.across; ++x) {
      const Stroke& stroke = strokes_[column * glyphs_.across + x];
      for (std::size_t y = 0; y < glyphs_.down; ++y) {
        const auto dot = static_cast<int64_t>((kChartRows - row) * glyphs_.down - 1 - y);
        if (stroke.low <= dot && dot <= stroke.high) dots |= 1U << (x * glyphs_.down + y);
      }
    }
    return dots;
  }

  std::size_t columnOf(std::size_t part, std::size_t parts) const { return (columns_ - 1) * part / parts; }

  void appendTimes(std::string& text) const {
    const std::size_t parts = std::clamp<std::size_t>(columns_ / kColumnsPerTime, 1, 4);
    std::vector<std::string_view> axis(columns_, glyphs_.floor);
    for (std::size_t part = 0; part <= parts; ++part) axis[columnOf(part, parts)] = glyphs_.mark;
    text += std::string(labelWidth_ + 1, ' ') + std::string(glyphs_.corner);
    for (const std::string_view one : axis) text += one;
    text += '\n';

    // From the right: the last one has the zone, and is always there.
    std::string times(labelWidth_ + 2 + columns_, ' ');
    std::size_t free = times.size();
    for (std::size_t part = parts + 1; part-- > 0;) {
      const std::string label = timeText(part, parts);
      const std::size_t middle = labelWidth_ + 2 + columnOf(part, parts);
      const std::size_t begin = part == parts ? times.size() - std::min(label.size(), times.size())
                                              : middle - std::min(label.size() / 2, middle);
      if (begin + label.size() > free) continue;
      times.replace(begin, label.size(), label);
      free = begin - std::min<std::size_t>(begin, 2);
    }
    text += times.substr(0, times.find_last_not_of(' ') + 1) + '\n';
  }

  std::string timeText(std::size_t part, std::size_t parts) const {
    const auto length = chart_.span.until - chart_.span.since;
    const platform::Date date =
        chart_.span.since + length * static_cast<int64_t>(part) / static_cast<int64_t>(parts);
    std::string text =
        length < kDaysWithoutClock ? web::sinceText(date, chart_.now) : web::dayText(date, chart_.now);
    if (length < kMinutesWithSeconds) text += web::secondText(date).substr(web::clockText(date).size());
    if (part == parts) text += ' ' + web::zoneName(date);
    return text;
  }

  const Chart& chart_;
  const Glyphs& glyphs_;
  Scale scale_{};
  std::size_t labelWidth_ = 0;
  std::size_t columns_ = 0;
  std::vector<Stroke> strokes_;
};

}  // namespace

std::string drawn(const Chart& chart, const ChartForm& form) {
  return Plot(chart, form).text();
}

}  // namespace brenloft
