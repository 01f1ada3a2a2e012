#include "gateway/web/PageData.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "gateway/Texts.h"
#include "gateway/web/LocalTime.h"
#include "gateway/web/PageTexts.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft::web {
namespace {

using platform::Date;
using platform::JSONWriter;

int64_t secondsOf(Date date) {
  return platform::wholeSecondsSince1970(date);
}

template <typename List, typename Write>
void array(JSONWriter& json, const char* key, const List& list, const Write& write) {
  json.plainKey(key).beginArray();
  for (const auto& one : list) write(one);
  json.endArray();
}

void spans(JSONWriter& json, const char* key, const std::vector<HistorySpan>& list) {
  array(json, key, list, [&](const HistorySpan& span) {
    json.beginArray().number(secondsOf(span.since)).number(secondsOf(span.until)).endArray();
  });
}

// An empty list where all are zero.
template <typename Value>
void numbers(JSONWriter& json, const char* key, const std::vector<HistoryPoint>& points,
             const Value& valueOf) {
  std::vector<int64_t> values;
  for (const HistoryPoint& point : points) values.push_back(valueOf(point));
  if (std::ranges::all_of(values, [](int64_t value) { return value == 0; })) values.clear();
  array(json, key, values, [&](int64_t value) { json.number(value); });
}

// Numbers beside their neighbours are small: runs of pieces, and differences.
void curve(JSONWriter& json, const PageLayer& layer, const PageCurve& curve) {
  const auto indexOf = [&](const HistoryPoint& point) {
    return (secondsOf(point.start) - secondsOf(layer.span.since)) / layer.width.count();
  };
  const auto& points = curve.points;
  json.beginObject().plainKey("runs").beginArray();
  int64_t end = 0;
  for (std::size_t first = 0; first < points.size();) {
    std::size_t last = first + 1;
    while (last < points.size() && points[last].start == points[last - 1].start + layer.width) ++last;
    const int64_t index = indexOf(points[first]);
    json.number(index - end).number(last - first);
    end = index + static_cast<int64_t>(last - first);
    first = last;
  }
  json.endArray();
  array(json, "breaks", curve.breaks, [&](std::size_t at) { json.number(at); });
  int64_t before = 0;
  const auto growth = [&](const HistoryPoint& point) {
    return std::lround(point.mean) - std::exchange(before, std::lround(point.mean));
  };
  numbers(json, "mean", points, growth);
  numbers(json, "below", points,
          [](const HistoryPoint& point) { return std::lround(point.mean) - point.minimum; });
  numbers(json, "above", points,
          [](const HistoryPoint& point) { return point.maximum - std::lround(point.mean); });
  json.endObject();
}

// The limits that charts draw: those of temperature and humidity.
void limits(JSONWriter& json, const PageBeacon& beacon) {
  json.plainKey("limits").beginArray();
  for (const AlarmRule& rule : beacon.rules) {
    const bool isTemperature = rule.quantity == AlarmRule::Quantity::temperature;
    if (!isTemperature && rule.quantity != AlarmRule::Quantity::humidity) continue;
    for (const auto& [limit, isUpper] : {std::pair(rule.below, false), std::pair(rule.above, true)})
      if (limit) json.beginArray().number(isTemperature ? 0 : 1).number(*limit).boolean(isUpper).endArray();
  }
  json.endArray();
}

void beacon(JSONWriter& json, const PageModel& page, const PageBeacon& one) {
  json.beginObject();
  json.plainKey("id").text(one.id.text());
  json.plainKey("name").text(printable(one.name()));
  json.plainKey("place").text(printable(one.label.place));
  array(json, "states", one.needs,
        [&](Need need) { json.beginArray().text(wordOf(need).word).text(wordOf(need).css).endArray(); });
  json.plainKey("saying").text(printable(sayingOf(page, one)));
  array(json, "facts", factsOf(page, one), [&](const Fact& fact) {
    json.beginArray().text(fact.name).text(fact.value).text(fact.unit).text(fact.css).endArray();
  });
  limits(json, one);
  spans(json, "presence", one.presence);
  json.plainKey("known_since").number(secondsOf(one.knownSince));
  array(json, "marks", one.marks, [&](const PageMark& mark) {
    json.beginArray().number(secondsOf(mark.span.since)).number(secondsOf(mark.span.until));
    json.text(mark.rule.empty() ? "emergency" : "alarm").text(printable(mark.rule)).endArray();
  });
  array(json, "layers", one.layers, [&](const PageLayer& layer) {
    // Pieces begin at multiples of their width.
    PageLayer aligned{layer.span, layer.width};
    aligned.span.since = Date(layer.span.since.time_since_epoch() / layer.width * layer.width);
    json.beginObject().plainKey("since").number(secondsOf(aligned.span.since));
    json.plainKey("until").number(secondsOf(layer.span.until));
    json.plainKey("width").number(layer.width.count());
    array(json, "curves", layer.curves, [&](const PageCurve& each) { curve(json, aligned, each); });
    json.endObject();
  });
  json.endObject();
}

}  // namespace

std::string pageData(const PageModel& page, std::optional<int64_t> seq) {
  HistorySpan span = page.span;
  // A live page asks for what came before.
  if (seq && page.extent) span.since = std::min(span.since, page.extent->since);
  JSONWriter json;
  json.beginObject();
  if (seq) json.plainKey("seq").number(*seq);
  json.plainKey("since").number(secondsOf(span.since));
  json.plainKey("until").number(secondsOf(page.now()));
  array(json, "zone", zoneChanges(span), [&](const ZoneChange& change) {
    json.beginArray()
        .number(secondsOf(change.since))
        .number(change.offset.count())
        .text(change.name)
        .endArray();
  });
  spans(json, "outages", page.outages);
  array(json, "beacons", page.beacons, [&](const PageBeacon& one) { beacon(json, page, one); });
  json.endObject();
  return std::string(json.written());
}

}  // namespace brenloft::web
