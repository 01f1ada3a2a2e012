#include "gateway/web/BeaconList.h"

#include <fmt/format.h>

#include "gateway/formats/Decimal.h"
#include "gateway/web/PageTexts.h"
#include "platform/foundation/JSONWriter.h"
#include "platform/foundation/NSDateFormatter.h"

namespace brenloft::web {
namespace {

using platform::Date;
using platform::JSONWriter;

void writeDate(JSONWriter& json, std::string_view key, std::optional<Date> date) {
  json.plainKey(key);
  if (date)
    json.text(platform::rfc3339Text(*date));
  else
    json.null();
}

void writeNumber(JSONWriter& json, std::string_view key, std::optional<int32_t> value) {
  json.plainKey(key);
  if (value)
    json.number(*value);
  else
    json.null();
}

void writeHundredths(JSONWriter& json, std::string_view key, std::optional<int32_t> value) {
  std::string text = value ? "" : "null";
  if (value) appendHundredths(text, *value);
  json.plainKey(key).raw(text);
}

void writeValues(JSONWriter& json, const Reading* latest) {
  static const Quantities kNothing;
  const Quantities& shown = latest == nullptr ? kNothing : latest->shown;
  writeDate(json, "heard", latest == nullptr ? std::nullopt : std::optional(latest->heard));
  writeHundredths(json, "temperature", shown.temperature);
  writeHundredths(json, "humidity", shown.humidity);
  writeNumber(json, "battery", shown.battery);
  writeNumber(json, "rssi", latest == nullptr ? std::nullopt : latest->rssi);
}

// While nothing listens nobody knows.
void writePresence(JSONWriter& json, const PageBeacon& beacon, bool isKnown) {
  json.plainKey("present");
  if (isKnown)
    json.boolean(beacon.isPresent);
  else
    json.null();
}

void writeBeacon(JSONWriter& json, const PageModel& page, const PageBeacon& beacon) {
  json.beginObject();
  json.plainKey("beacon").text(beacon.id.text());
  json.plainKey("kind").text(beacon.id.kind() == BeaconId::Kind::sensor ? "sensor" : "ibeacon");
  json.plainKey("name").text(beacon.label.name);
  json.plainKey("place").text(beacon.label.place);
  writePresence(json, beacon, !page.deafSince);
  writeValues(json, beacon.latest ? &*beacon.latest : nullptr);
  json.plainKey("battery_per_day");
  if (beacon.trend)
    json.raw(fmt::format("{:.3f}", beacon.trend->perDay));
  else
    json.null();
  writeDate(json, "battery_empty", beacon.empty);
  writeDate(json, "emergency_since", beacon.emergencySince);
  json.plainKey("alarms").beginArray();
  for (const RaisedAlarm& raised : beacon.raised) {
    json.beginObject().plainKey("rule").text(raised.rule);
    writeDate(json, "since", raised.since);
    json.endObject();
  }
  json.endArray().plainKey("states").beginArray();
  for (const Need need : beacon.needs) json.text(wordOf(need).word);
  json.endArray().endObject();
}

std::optional<Date> newestReading(const PageModel& page) {
  std::optional<Date> newest;
  for (const PageBeacon& beacon : page.beacons)
    if (beacon.latest && (!newest || *newest < beacon.latest->heard)) newest = beacon.latest->heard;
  return newest;
}

}  // namespace

std::string beaconList(const PageModel& page, int64_t seq) {
  JSONWriter json;
  json.beginObject();
  writeDate(json, "time", page.now());
  json.plainKey("seq").number(seq);
  writeDate(json, "nothing_listens_since", page.deafSince);
  json.plainKey("beacons").beginArray();
  for (const PageBeacon& beacon : page.beacons) writeBeacon(json, page, beacon);
  json.endArray().endObject().endLine();
  return std::string(json.written());
}

HealthText healthOf(const PageModel& page) {
  const bool isWell = page.extent && page.isWritten && !page.deafSince;
  const auto newest = newestReading(page);
  JSONWriter json;
  json.beginObject();
  json.plainKey("status").text(!page.extent ? "no history yet" : isWell ? "ok" : "nothing listens");
  json.plainKey("reason");
  if (isWell)
    json.null();
  else if (!page.extent)
    json.text("no process has written a history yet");
  else
    json.text(page.isWritten ? "the radio hears nothing" : "no process writes the history");
  writeDate(json, "nothing_listens_since", page.deafSince);
  writeDate(json, "newest_reading", newest);
  json.plainKey("newest_reading_age");
  if (newest)
    json.raw(fmt::format("{:.1f}", std::chrono::duration<double>(page.now() - *newest).count()));
  else
    json.null();
  json.endObject().endLine();
  return {isWell, std::string(json.written())};
}

}  // namespace brenloft::web
