#include <string>
#include <utility>

#include "tools/brenloft/SearchEvents.h"

namespace brenloft {
namespace {

class RecordLinesEvents final : public RecordEvents {
 public:
  RecordLinesEvents(Output& out, RecordLines lines, Labels labels)
      : out_(out), lines_(std::move(lines)), labels_(std::move(labels)) {}

  bool record(const Record& record) override {
    const BeaconId* beacon = beaconOf(record);
    line_.clear();
    lines_.append(line_, record, beacon != nullptr ? labels_(*beacon) : Label{});
    out_.write(line_);
    return !line_.empty();
  }

 private:
  Output& out_;
  RecordLines lines_;
  const Labels labels_;
  std::string line_;
};

class NoEvents final : public RecordEvents {};

}  // namespace

RecordLines recordLinesOf(SearchFormat format, const std::optional<TimeForm>& time) {
  return RecordLines(
      format == SearchFormat::influx ? RecordLines::Format::influx : RecordLines::Format::readings,
      time == TimeForm::local ? RecordLines::Zone::local : RecordLines::Zone::utc);
}
std::unique_ptr<SearchEvents> makeRecordLines(Output& out, RecordLines lines, Labels labels) {
  return std::make_unique<RecordLinesEvents>(out, std::move(lines), std::move(labels));
}
std::unique_ptr<SearchEvents> makeNoEvents() {
  return std::make_unique<NoEvents>();
}

}  // namespace brenloft
