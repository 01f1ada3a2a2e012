#include "gateway/formats/RecordLines.h"

#include <string_view>
#include <variant>

#include "gateway/formats/Decimal.h"
#include "gateway/formats/LineProtocol.h"

namespace brenloft {
namespace {

using platform::JSONWriter;

void write(JSONWriter& json, std::string_view key, std::string_view text) {
  json.plainKey(key);
  if (text.empty())
    json.null();
  else
    json.text(text);
}

void write(JSONWriter& json, std::string_view key, std::optional<int32_t> number) {
  json.plainKey(key);
  if (number)
    json.number(*number);
  else
    json.null();
}

void writeHundredths(JSONWriter& json, std::string_view key, std::optional<int32_t> hundredths) {
  if (!hundredths) return write(json, key, std::nullopt);
  std::string decimal;
  appendHundredths(decimal, *hundredths);
  json.plainKey(key).raw(decimal);
}

void writeAcceleration(JSONWriter& json, const Quantities& shown) {
  json.plainKey("accel");
  if (shown.xAccel && shown.yAccel && shown.zAccel)
    json.beginArray().number(*shown.xAccel).number(*shown.yAccel).number(*shown.zAccel).endArray();
  else
    json.null();
}

// What the offsets have changed, or null.
void writeRaw(JSONWriter& json, const Reading& reading) {
  json.plainKey("raw");
  if (reading.raw == reading.shown) {
    json.null();
    return;
  }
  json.beginObject();
  writeHundredths(json, "temperature", reading.raw.temperature);
  writeHundredths(json, "humidity", reading.raw.humidity);
  json.endObject();
}

void writeMembers(JSONWriter& json, const Reading& reading) {
  write(json, "rssi", reading.rssi);
  writeHundredths(json, "temperature", reading.shown.temperature);
  writeHundredths(json, "humidity", reading.shown.humidity);
  write(json, "battery", reading.shown.battery);
  write(json, "emergency", reading.shown.emergency);
  write(json, "tx_power", reading.shown.txPower);
  writeAcceleration(json, reading.shown);
  writeRaw(json, reading);
}

void writeValue(JSONWriter& json, std::string_view key, AlarmQuantity quantity,
                std::optional<int32_t> value) {
  json.plainKey(key);
  if (value)
    json.raw(valueText(quantity, *value));
  else
    json.null();
}

void writeAlarm(JSONWriter& json, const AlarmFacts& alarm) {
  json.plainKey("alarm").beginObject();
  write(json, "severity", textOf(alarm.severity));
  write(json, "quantity", textOf(alarm.quantity));
  writeValue(json, "value", alarm.quantity, alarm.value);
  writeValue(json, "threshold", alarm.quantity, alarm.threshold);
  write(json, "text", alarm.text);
  json.endObject();
}

void writeMembers(JSONWriter& json, const BeaconEvent& event) {
  write(json, "text", event.text);
  if (event.alarm) writeAlarm(json, *event.alarm);
  if (event.kind == BeaconEvent::Kind::gap) json.plainKey("count").number(event.count);
}

std::string_view nameOf(const Record& record) {
  const auto* event = std::get_if<BeaconEvent>(&record);
  return event != nullptr ? textOf(event->kind) : "reading";
}

}  // namespace

RecordLines::RecordLines(Format format, Zone zone)
    : format_(format), zone_(zone), local_("yyyy-MM-ddTHH:mm:ss.SSSSSSxxx") {}

void RecordLines::append(std::string& lines, const Record& record, const Label& label,
                         std::optional<uint64_t> seq) {
  if (format_ == Format::influx) return appendLineProtocol(lines, record, label);
  appendReadings(lines, record, label, seq);
}

std::string RecordLines::timeOf(const Record& record) {
  const platform::Date date = heardAt(record);
  return zone_ == Zone::local ? local_.stringFromDate(date) : platform::rfc3339Text(date);
}

void RecordLines::appendReadings(std::string& lines, const Record& record, const Label& label,
                                 std::optional<uint64_t> seq) {
  json_.clear();
  json_.beginObject();
  write(json_, "time", timeOf(record));
  if (seq) json_.plainKey("seq").number(*seq);
  write(json_, "event", nameOf(record));
  const BeaconId* beacon = beaconOf(record);
  write(json_, "id", beacon != nullptr ? std::string_view(beacon->text()) : "");
  write(json_, "name", label.name);
  write(json_, "place", label.place);
  std::visit([&](const auto& one) { writeMembers(json_, one); }, record);
  json_.endObject().endLine();
  lines += json_.written();
}

}  // namespace brenloft
