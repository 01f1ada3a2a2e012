#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SearchEvents.h"

namespace brenloft {
namespace {

class JsonEvents : public SearchEvents {
 public:
  JsonEvents(Output& out, TimeForm timeForm) : out_(out), line_(timeForm) {}

  bool showsBytes() const override { return true; }
  bool bytes(platform::Date time, const Octets& octets) override {
    beginLine("bytes", time);
    line_.plainKey("bytes").beginArray();
    for (const std::string& octet : octets) line_.text(octet);
    line_.endArray().endObject();
    out_.write(line_.take());
    return true;
  }

  bool beacon(platform::Date time, const BRLBeaconSnapshot& record) override {
    return one("beacon", time, record);
  }
  bool emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    return one("emergency", time, record);
  }

  bool left(platform::Date time, const BRLBeaconSnapshot& record) override {
    return one("left", time, record);
  }
  bool returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    return one("returned", time, record);
  }

  bool ranged(platform::Date time, const BRLRecordList& records) override {
    beginLine("ranged", time);
    line_.plainKey("beacons").beginArray();
    for (const auto& record : records.view()) writeRecord(line_, record->snapshot());
    line_.endArray();
    return end();
  }

  void radio(platform::Date time, const platform::RadioState& state) override {
    beginLine("radio", time);
    line_.plainKey("state").text(textOf(state.state)).plainKey("reason");
    if (state.reason.empty())
      line_.null();
    else
      line_.text(state.reason);
    end();
  }

 private:
  void beginLine(std::string_view event, platform::Date time) {
    line_.beginObject().plainKey("event").text(event).plainKey("time");
    line_.date(time);
  }

  bool end() {
    line_.endObject();
    out_.write(line_.take());
    return true;
  }

  bool one(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    beginLine(event, time);
    line_.plainKey("beacon");
    writeRecord(line_, record);
    return end();
  }

  Output& out_;
  JsonLine line_;
};

}  // namespace

std::unique_ptr<SearchEvents> makeJsonEvents(Output& out, TimeForm timeForm) {
  return std::make_unique<JsonEvents>(out, timeForm);
}

}  // namespace brenloft
