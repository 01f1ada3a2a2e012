#include <fmt/format.h>

#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

class CsvEvents : public SearchEvents {
 public:
  CsvEvents(Output& out, TimeForm timeForm) : out_(out), times_(timeForm) {}

  void begin() override { out_.write(fmt::format("event,time,{}\n", recordNames())); }

  bool beacon(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("beacon", time, record);
  }
  bool emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("emergency", time, record);
  }
  bool ranged(platform::Date time, const BRLRecordList& records) override {
    lines_.clear();
    for (const auto& record : records.view()) appendLine("ranged", time, record->snapshot());
    out_.write(lines_);
    return !lines_.empty();
  }
  bool left(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("left", time, record);
  }
  bool returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("returned", time, record);
  }
  void radio(platform::Date, const platform::RadioState& state) override { printMessage(radioLine(state)); }

 private:
  void appendLine(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    lines_.append(event).append(",");
    times_.appendWhole(time, lines_);
    lines_ += ',';
    appendRecord(lines_, record, times_);
    lines_ += '\n';
  }
  bool row(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    lines_.clear();
    appendLine(event, time, record);
    out_.write(lines_);
    return true;
  }

  Output& out_;
  TimeText times_;
  std::string lines_;
};

class RowEvents : public SearchEvents {
 public:
  RowEvents(Output& out, TimeForm timeForm) : out_(out), times_(timeForm) {}

  void begin() override {
    out_.write(fmt::format("{:<{}}  {:<9}  {}\n", "time", times_.wholeWidth(), "event", recordHeader()));
  }

  bool beacon(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row(record.status == 2 ? "lost" : "present", time, record);
  }
  bool emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("EMERGENCY", time, record);
  }
  bool ranged(platform::Date time, const BRLRecordList& records) override {
    std::string lines;
    for (const auto& record : records.view())
      if (record->beaconType() == 2) lines += line("ranged", time, record->snapshot());
    out_.write(lines);
    return !lines.empty();
  }
  bool left(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("left", time, record);
  }
  bool returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    return row("returned", time, record);
  }
  void radio(platform::Date, const platform::RadioState& state) override { printMessage(radioLine(state)); }

 private:
  std::string line(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    return fmt::format("{}  {:<9}  {}\n", times_.whole(time), event, recordRow(record));
  }
  bool row(std::string_view event, platform::Date time, const BRLBeaconSnapshot& record) {
    out_.write(line(event, time, record));
    return true;
  }

  Output& out_;
  TimeText times_;
};

}  // namespace

std::unique_ptr<SearchEvents> makeCsvEvents(Output& out, TimeForm timeForm) {
  return std::make_unique<CsvEvents>(out, timeForm);
}
std::unique_ptr<SearchEvents> makeRowEvents(Output& out, TimeForm timeForm) {
  return std::make_unique<RowEvents>(out, timeForm);
}

}  // namespace brenloft
