#include "gateway/formats/LineProtocol.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "gateway/formats/Decimal.h"

namespace brenloft {
namespace {

// https://docs.influxdata.com/influxdb/v2/reference/syntax/line-protocol/: a tag's value has no line end, and
// a backslash at its end would take the comma or the blank behind it along.
void appendTag(std::string& line, std::string_view key, std::string_view value) {
  if (value.empty()) return;
  fmt::format_to(std::back_inserter(line), ",{}=", key);
  for (const char c : value) {
    if (c == ',' || c == '=' || c == ' ') line += '\\';
    line += static_cast<unsigned char>(c) < ' ' || c == '\\' ? '_' : c;
  }
}

void appendTags(std::string& line, const Label& label) {
  appendTag(line, "name", label.name);
  appendTag(line, "place", label.place);
}

void appendTime(std::string& line, platform::Date time) {
  line += ' ';
  appendNumber(line, std::chrono::nanoseconds(time.time_since_epoch()).count());
  line += '\n';
}

// What follows the tags: the fields, one by one.
class Fields {
 public:
  explicit Fields(std::string& line) : line_(line) {}

  void hundredths(std::string_view key, std::optional<int32_t> value) {
    if (value) appendHundredths(begin(key), *value);
  }
  void value(std::string_view key, AlarmQuantity quantity, std::optional<int32_t> value) {
    if (value) begin(key) += valueText(quantity, *value);
  }
  void integer(std::string_view key, std::optional<int64_t> value) {
    if (!value) return;
    appendNumber(begin(key), *value);
    line_ += 'i';
  }
  void text(std::string_view key, std::string_view value) {
    if (value.empty()) return;
    begin(key) += '"';
    for (const char c : value) {
      if (c == '"' || c == '\\') line_ += '\\';
      line_ += c == '\n' ? ' ' : c;
    }
    line_ += '"';
  }
  bool areNone() const { return separator_ == ' '; }

 private:
  std::string& begin(std::string_view key) {
    line_ += std::exchange(separator_, ',');
    line_ += key;
    return line_ += '=';
  }

  std::string& line_;
  char separator_ = ' ';
};

void appendFields(Fields& fields, const Reading& reading) {
  fields.hundredths("temperature", reading.shown.temperature);
  fields.hundredths("humidity", reading.shown.humidity);
  fields.integer("battery", reading.shown.battery);
  fields.integer("emergency", reading.shown.emergency);
  fields.integer("rssi", reading.rssi);
  fields.integer("tx_power", reading.shown.txPower);
  fields.integer("accel_x", reading.shown.xAccel);
  fields.integer("accel_y", reading.shown.yAccel);
  fields.integer("accel_z", reading.shown.zAccel);
  if (reading.raw.temperature != reading.shown.temperature)
    fields.hundredths("raw_temperature", reading.raw.temperature);
  if (reading.raw.humidity != reading.shown.humidity) fields.hundredths("raw_humidity", reading.raw.humidity);
}

void appendFields(Fields& fields, const BeaconEvent& event) {
  fields.text("text", event.text);
  if (event.alarm) {
    fields.text("severity", textOf(event.alarm->severity));
    fields.text("quantity", textOf(event.alarm->quantity));
    fields.value("value", event.alarm->quantity, event.alarm->value);
    fields.value("threshold", event.alarm->quantity, event.alarm->threshold);
    fields.text("alarm_text", event.alarm->text);
  }
  // A line has one field at least: one event.
  if (event.count != 0 || fields.areNone())
    fields.integer("count", std::max<int64_t>(static_cast<int64_t>(event.count), 1));
}

}  // namespace

void appendLineProtocol(std::string& lines, const Record& record, const Label& label) {
  const std::size_t begin = lines.size();
  const auto* event = std::get_if<BeaconEvent>(&record);
  lines += event != nullptr ? "event" : "reading";
  if (event != nullptr) appendTag(lines, "kind", textOf(event->kind));
  const BeaconId* beacon = beaconOf(record);
  if (beacon != nullptr) appendTag(lines, "id", beacon->text());
  appendTags(lines, label);
  Fields fields(lines);
  std::visit([&](const auto& one) { appendFields(fields, one); }, record);
  if (fields.areNone()) return lines.resize(begin);
  appendTime(lines, heardAt(record));
}

void appendLineProtocol(std::string& lines, std::string_view measurement, const BeaconId& beacon,
                        const Label& label, std::string_view fields, platform::Date time) {
  lines += measurement;
  appendTag(lines, "id", beacon.text());
  appendTags(lines, label);
  lines += ' ';
  lines += fields;
  appendTime(lines, time);
}

}  // namespace brenloft
