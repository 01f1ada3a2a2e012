#include "gateway/web/PageReading.h"

#include <algorithm>
#include <array>

namespace brenloft::web {
namespace {

using namespace std::chrono_literals;
using platform::Date;
using Seconds = std::chrono::seconds;

constexpr std::size_t kRowsPerPage = 1000;

constexpr std::array<Seconds, 23> kWidths{1s,   2s,   5s,    10s,   15s,   30s,   1min, 2min,
                                          3min, 5min, 10min, 15min, 20min, 30min, 1h,   2h,
                                          3h,   4h,   6h,    8h,    12h,   24h,   48h};

bool isAnyIn(const std::vector<HistorySpan>& spans, Date since, Date until) {
  return std::ranges::any_of(spans,
                             [&](const HistorySpan& one) { return one.since < until && since < one.until; });
}

// Of a start that nothing told to be one, when the row before it was heard.
std::optional<Date> silentBefore(HistoryReader& reader, const PageStory& story, const HistoryRow& row) {
  if (!story.isStart(std::get<BeaconEvent>(row.record)) || row.seq <= 1) return std::nullopt;
  const auto before = require(reader.rows(row.seq - 2, {}, 1));
  if (before.rows.empty() || before.rows.front().seq >= row.seq) return std::nullopt;
  return heardAt(before.rows.front().record);
}

// Whether the row that was written last was heard after an instant: a clock that was put back leaves others
// of the future.
bool goesOnAfter(HistoryReader& reader, Date instant) {
  const auto last = require(reader.rows(require(reader.lastSeq()) - 1, {}, 1));
  return !last.rows.empty() && heardAt(last.rows.front().record) >= instant;
}

// Whether the next start tells that nothing listened at an instant.
bool isStoppedAt(HistoryReader& reader, const PageStory& story, Date instant) {
  const auto next = require(reader.firstRadioEvent(instant));
  if (!next) return false;
  const auto silent = silentBefore(reader, story, *next);
  return silent && *silent < instant && heardAt(next->record) - *silent >= PageStory::kLeastStop;
}

}  // namespace

Seconds widthFor(std::chrono::microseconds span, std::size_t pieces) {
  const auto most = static_cast<int64_t>(pieces);
  for (const Seconds width : kWidths)
    if (width * most >= span) return width;
  return std::chrono::days(7) * (span / (std::chrono::days(7) * most) + 1);
}

std::vector<HistorySpan> silencesOf(const HistorySpan& span, const std::vector<HistorySpan>& presence,
                                    std::vector<HistorySpan> outages) {
  Date since = span.since;
  for (const HistorySpan& present : presence) {
    if (since < present.since) outages.push_back({since, present.since});
    since = std::max(since, present.until);
  }
  if (since < span.until) outages.push_back({since, span.until});
  return outages;
}

PageCurve curveOf(std::vector<HistoryPoint> points, Seconds width, const std::vector<HistorySpan>& silences) {
  PageCurve curve{std::move(points)};
  for (std::size_t i = 1; i < curve.points.size(); ++i) {
    const Date end = curve.points[i - 1].start + width;
    if (end < curve.points[i].start && isAnyIn(silences, end, curve.points[i].start))
      curve.breaks.push_back(i);
  }
  return curve;
}

PageLayer readLayer(HistoryReader& reader, const BeaconId& beacon, const HistorySpan& span,
                    std::size_t pieces, const std::vector<HistorySpan>& silences) {
  PageLayer layer{span, widthFor(span.until - span.since, pieces)};
  auto curves = require(reader.pieces(beacon, kPageQuantities, span, layer.width));
  for (std::size_t i = 0; i < layer.curves.size(); ++i)
    layer.curves[i] = curveOf(std::move(curves[i]), layer.width, silences);
  return layer;
}

void eachRow(HistoryReader& reader, const HistoryFilter& filter,
             const std::function<void(const HistoryRow&)>& take) {
  int64_t after = 0;
  for (bool isLast = false; !isLast;) {
    const auto page = require(reader.rows(after, filter, kRowsPerPage));
    for (const HistoryRow& row : page.rows) take(row);
    isLast = page.isLast || page.through <= after;
    after = page.through;
  }
}

std::map<BeaconId, Reading> latestIn(HistoryReader& reader, const std::vector<BeaconId>& beacons,
                                     const HistorySpan& span) {
  std::map<BeaconId, Reading> latest;
  if (beacons.empty()) return latest;
  for (const HistoryBeacon& one : require(reader.latestAt(beacons, span.until - 1us, span.since)))
    if (one.latest) latest.emplace(one.beacon, std::get<Reading>(one.latest->record));
  return latest;
}

PageStory readStory(HistoryReader& reader, const HistorySpan& span, const PageEnd& end,
                    std::vector<BeaconId> beacons) {
  PageStory story(span);
  const HistoryFilter filter{
      .beacons = std::move(beacons), .hasGateway = true, .span = {.until = span.until}, .hasReadings = false};
  eachRow(reader, filter, [&](const HistoryRow& row) {
    story.take(std::get<BeaconEvent>(row.record), silentBefore(reader, story, row));
  });
  const auto heardLast = require(reader.newestBefore(span.until));
  if (!heardLast) return story;
  if (!end.isPast || !goesOnAfter(reader, span.until))
    story.finish(*heardLast, end.isWritten);
  else if (isStoppedAt(reader, story, span.until))
    story.finish(*heardLast, false);
  else
    story.finish(span.until, true);  // somebody listened, however long there was nothing to hear
  return story;
}

bool isPresent(const BeaconStory* story, const std::optional<Reading>& latest) {
  // What is heard after its loss: the clock was put back.
  return latest && (story == nullptr || story->isPresent.value_or(true) ||
                    (story->lostAt && *story->lostAt < latest->heard));
}

std::vector<HistorySpan> presenceOf(const BeaconStory* story, bool isPresent, const HistorySpan& span) {
  if (isPresent && (story == nullptr || !story->isPresent)) return {span};
  return story == nullptr ? std::vector<HistorySpan>() : story->presence;
}

Date knownSince(const BeaconStory* story, const HistorySpan& extent) {
  return story != nullptr && story->foundFirst ? *story->foundFirst : extent.since;
}

}  // namespace brenloft::web
