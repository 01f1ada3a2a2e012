#include "gateway/formats/RecordLines.h"

#include <iterator>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "gateway/formats/Decimal.h"
#include "gateway/formats/LineProtocol.h"

namespace brenloft {
namespace {

void appendQuoted(std::string& line, std::string_view text) {
  line += '"';
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < ' ') {
      fmt::format_to(std::back_inserter(line), "\\u{:04x}", c);
      continue;
    }
    if (c == '"' || c == '\\') line += '\\';
    line += c;
  }
  line += '"';
}

// One object, member by member.
class Members {
 public:
  explicit Members(std::string& line) : line_(line) {}

  std::string& value(std::string_view key) {
    line_ += std::exchange(separator_, ',');
    return (line_ += '"').append(key) += "\":";
  }
  void text(std::string_view key, std::string_view text) {
    if (text.empty())
      value(key) += "null";
    else
      appendQuoted(value(key), text);
  }
  template <typename Append>
  void number(std::string_view key, std::optional<int32_t> number, const Append& append) {
    if (number)
      append(value(key), *number);
    else
      value(key) += "null";
  }
  void integer(std::string_view key, std::optional<int32_t> number) {
    this->number(key, number, appendNumber);
  }
  void hundredths(std::string_view key, std::optional<int32_t> number) {
    this->number(key, number, appendHundredths);
  }

 private:
  std::string& line_;
  char separator_ = '{';
};

void appendAcceleration(std::string& line, const Quantities& shown) {
  char separator = '[';
  for (const auto& axis : {shown.xAccel, shown.yAccel, shown.zAccel}) {
    if (!axis) return void(line += "null");
    line += std::exchange(separator, ',');
    appendNumber(line, *axis);
  }
  line += ']';
}

// What the offsets have changed, or null.
void appendRaw(std::string& line, const Reading& reading) {
  if (reading.raw == reading.shown) return void(line += "null");
  Members raw(line);
  raw.hundredths("temperature", reading.raw.temperature);
  raw.hundredths("humidity", reading.raw.humidity);
  line += '}';
}

void appendMembers(Members& members, const Reading& reading) {
  members.integer("rssi", reading.rssi);
  members.hundredths("temperature", reading.shown.temperature);
  members.hundredths("humidity", reading.shown.humidity);
  members.integer("battery", reading.shown.battery);
  members.integer("emergency", reading.shown.emergency);
  members.integer("tx_power", reading.shown.txPower);
  appendAcceleration(members.value("accel"), reading.shown);
  appendRaw(members.value("raw"), reading);
}

void appendMembers(Members& members, const BeaconEvent& event) {
  members.text("text", event.text);
  if (event.kind == BeaconEvent::Kind::gap)
    appendNumber(members.value("count"), static_cast<int64_t>(event.count));
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

void RecordLines::appendTime(std::string& lines, platform::Date date) {
  lines += '"';
  if (zone_ == Zone::local)
    local_.appendDate(date, lines);
  else
    lines += platform::rfc3339Text(date);
  lines += '"';
}

void RecordLines::appendReadings(std::string& lines, const Record& record, const Label& label,
                                 std::optional<uint64_t> seq) {
  Members members(lines);
  appendTime(members.value("time"), heardAt(record));
  if (seq) appendNumber(members.value("seq"), static_cast<int64_t>(*seq));
  members.text("event", nameOf(record));
  const BeaconId* beacon = beaconOf(record);
  members.text("id", beacon != nullptr ? std::string_view(beacon->text()) : "");
  members.text("name", label.name);
  members.text("place", label.place);
  std::visit([&](const auto& one) { appendMembers(members, one); }, record);
  lines += "}\n";
}

}  // namespace brenloft
