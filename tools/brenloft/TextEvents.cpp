#include <fmt/format.h>

#include "platform/foundation/NSDateFormatter.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

// RFC 4180: quoted where a comma, a quote or a line end stands inside.
std::string csvField(const BRLOptionalText& text) {
  if (!text || text->find_first_of(",\"\r\n") == std::string::npos) return text.value_or("");
  std::string quoted = "\"";
  for (const char c : *text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + '"';
}

class CsvEvents : public SearchEvents {
 public:
  explicit CsvEvents(Output& out) : out_(out) {}

  void begin() override {
    out_.write(
        "event,time,beaconType,beaconId,uuid,major,minor,rssi,txPower,emergency,battery,temperature,humidity,"
        "uniqueId,tbd,status,statusUpdatedDate,xAccel,yAccel,zAccel\n");
  }

  void bytes(platform::Date, const Octets&) override {}
  void beacon(platform::Date time, const BRLBeaconSnapshot& record) override { row("beacon", time, record); }
  void emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    row("emergency", time, record);
  }
  void ranged(platform::Date time, const BRLRecordList& records) override {
    for (const auto& record : records.view()) row("ranged", time, record->snapshot());
  }
  void left(platform::Date time, const BRLBeaconSnapshot& record) override { row("left", time, record); }
  void returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    row("returned", time, record);
  }
  void radio(platform::Date, const platform::RadioState& state) override { say(radioLine(state)); }

 private:
  void row(std::string_view event, platform::Date time, const BRLBeaconSnapshot& r) {
    out_.write(fmt::format("{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{}\n", event,
                           secondsText(time), r.beaconType, csvField(r.beaconId), csvField(r.uuid), r.major,
                           r.minor, r.rssi, r.txPower, r.emergency, r.battery, csvField(r.temperature),
                           csvField(r.humidity), csvField(r.uniqueId), csvField(r.tbd), r.status,
                           r.statusUpdatedDate ? secondsText(*r.statusUpdatedDate) : "", csvField(r.xAccel),
                           csvField(r.yAccel), csvField(r.zAccel)));
  }

  Output& out_;
};

class RowEvents : public SearchEvents {
 public:
  explicit RowEvents(Output& out) : out_(out) {}

  void begin() override { out_.write(fmt::format("{:<27}  {:<9}  {}\n", "time", "event", recordHeader())); }

  void bytes(platform::Date, const Octets&) override {}
  void beacon(platform::Date time, const BRLBeaconSnapshot& record) override {
    row(record.status == 2 ? "lost" : "present", time, record);
  }
  void emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    row("EMERGENCY", time, record);
  }
  void ranged(platform::Date time, const BRLRecordList& records) override {
    for (const auto& record : records.view())
      if (record->beaconType() == 2) row("ranged", time, record->snapshot());
  }
  void left(platform::Date time, const BRLBeaconSnapshot& record) override { row("left", time, record); }
  void returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    row("returned", time, record);
  }
  void radio(platform::Date, const platform::RadioState& state) override { say(radioLine(state)); }

 private:
  void row(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    out_.write(fmt::format("{}  {:<9}  {}\n", platform::rfc3339Text(time), event, recordRow(record)));
  }

  Output& out_;
};

}  // namespace

std::unique_ptr<SearchEvents> makeCsvEvents(Output& out) {
  return std::make_unique<CsvEvents>(out);
}
std::unique_ptr<SearchEvents> makeRowEvents(Output& out) {
  return std::make_unique<RowEvents>(out);
}

}  // namespace brenloft
