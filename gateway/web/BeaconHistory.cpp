#include "gateway/web/BeaconHistory.h"

#include <cmath>
#include <map>
#include <string_view>

#include <fmt/format.h>

#include "gateway/formats/Decimal.h"
#include "gateway/web/PageReading.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft::web {
namespace {

using platform::Date;
using platform::JSONWriter;

constexpr std::array<std::string_view, kPageQuantities.size()> kNames{"temperature", "humidity", "rssi",
                                                                      "battery"};

bool isInHundredths(std::size_t quantity) {
  return quantity < 2;
}

std::string valueText(std::size_t quantity, int32_t value) {
  if (!isInHundredths(quantity)) return std::to_string(value);
  std::string text;
  appendHundredths(text, value);
  return text;
}

std::string meanText(std::size_t quantity, double mean) {
  std::string text =
      fmt::format("{:.{}f}", isInHundredths(quantity) ? mean / 100 : mean, isInHundredths(quantity) ? 2 : 1);
  if (text.starts_with('-') && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
  return text;
}

void writeSpans(JSONWriter& json, std::string_view key, const std::vector<HistorySpan>& spans) {
  json.plainKey(key).beginArray();
  for (const HistorySpan& span : spans)
    json.beginArray()
        .number(platform::wholeSecondsSince1970(span.since))
        .number(platform::wholeSecondsSince1970(span.until))
        .endArray();
  json.endArray();
}

void writeCurve(JSONWriter& json, std::size_t quantity, const PageCurve& curve) {
  json.plainKey(kNames[quantity]).beginArray();
  auto next = curve.breaks.begin();
  for (std::size_t i = 0; i < curve.points.size(); ++i) {
    const HistoryPoint& point = curve.points[i];
    if (next != curve.breaks.end() && *next == i) {
      json.null();
      ++next;
    }
    json.beginArray().number(platform::wholeSecondsSince1970(point.start));
    json.raw(valueText(quantity, point.minimum)).raw(meanText(quantity, point.mean));
    json.raw(valueText(quantity, point.maximum)).endArray();
  }
  json.endArray();
}

}  // namespace

platform::Result<BeaconHistory> readBeaconHistory(HistoryReader& reader, const Settings& settings,
                                                  const BeaconId& beacon, const HistorySpan& span,
                                                  std::size_t points, const PageEnd& end) {
  try {
    BeaconHistory history{.id = beacon, .label = settings.labelOf(beacon)};
    std::optional<Reading> latest;
    for (const HistoryBeacon& one : require(reader.latest(0, {beacon})))
      if (one.beacon == beacon && one.latest) latest = std::get<Reading>(one.latest->record);
    if (latest && latest->heard >= span.until) {
      const auto before = latestIn(reader, {beacon}, {.until = span.until});
      latest = before.empty() ? std::nullopt : std::optional(before.begin()->second);
    }
    const PageStory story = readStory(reader, span, end, {beacon});
    const BeaconStory* told = story.find(beacon);
    history.outages = story.outages();
    history.presence = presenceOf(told, isPresent(told, latest), span);
    history.knownSince = knownSince(told, require(reader.extent()));
    if (told != nullptr) history.marks = told->marks;
    history.layer =
        readLayer(reader, beacon, span, points, silencesOf(span, history.presence, history.outages));
    return history;
  } catch (const Unreadable& unreadable) {
    return unreadable.error;
  }
}

std::string historyJson(const BeaconHistory& history) {
  JSONWriter json;
  json.beginObject();
  json.plainKey("beacon").text(history.id.text());
  json.plainKey("name").text(history.label.name);
  json.plainKey("place").text(history.label.place);
  json.plainKey("since").number(platform::wholeSecondsSince1970(history.layer.span.since));
  json.plainKey("until").number(platform::wholeSecondsSince1970(history.layer.span.until));
  json.plainKey("width").number(history.layer.width.count());
  writeSpans(json, "outages", history.outages);
  writeSpans(json, "presence", history.presence);
  json.plainKey("known_since").number(platform::wholeSecondsSince1970(history.knownSince));
  json.plainKey("marks").beginArray();
  for (const PageMark& mark : history.marks)
    json.beginArray()
        .number(platform::wholeSecondsSince1970(mark.span.since))
        .number(platform::wholeSecondsSince1970(mark.span.until))
        .text(mark.rule.empty() ? "emergency" : "alarm")
        .text(mark.rule)
        .endArray();
  json.endArray();
  for (std::size_t i = 0; i < history.layer.curves.size(); ++i) writeCurve(json, i, history.layer.curves[i]);
  json.endObject().endLine();
  return std::string(json.written());
}

std::string historyCsv(const BeaconHistory& history) {
  std::string text = "time";
  for (const std::string_view name : kNames) text += fmt::format(",{0}_mean,{0}_min,{0}_max", name);
  std::map<Date, std::array<const HistoryPoint*, kNames.size()>> rows;
  for (std::size_t i = 0; i < kNames.size(); ++i)
    for (const HistoryPoint& point : history.layer.curves[i].points) rows[point.start][i] = &point;
  for (const auto& [start, points] : rows) {
    text += fmt::format("\n{}", platform::wholeSecondsSince1970(start));
    for (std::size_t i = 0; i < points.size(); ++i)
      text += points[i] == nullptr
                  ? ",,,"
                  : fmt::format(",{},{},{}", meanText(i, points[i]->mean), valueText(i, points[i]->minimum),
                                valueText(i, points[i]->maximum));
  }
  return text + '\n';
}

}  // namespace brenloft::web
