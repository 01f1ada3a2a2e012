#include <map>
#include <tuple>
#include <utility>

#include "tools/brenloft/SearchEvents.h"

namespace brenloft {
namespace {

class Transitions final : public SearchEvents {
 public:
  explicit Transitions(std::unique_ptr<SearchEvents> shown) : shown_(std::move(shown)) {}

  void begin() override { shown_->begin(); }
  bool beacon(platform::Date time, const BRLBeaconSnapshot& record) override {
    Reported& reported = reportedOf(record);
    const bool isStatusNew = std::exchange(reported.status, record.status) != record.status;
    const bool isEmergencyOver = record.emergency == 0 && std::exchange(reported.isEmergency, false);
    return (isStatusNew || isEmergencyOver) && shown_->beacon(time, record);
  }
  bool emergency(platform::Date time, const BRLBeaconSnapshot& record) override {
    return !std::exchange(reportedOf(record).isEmergency, true) && shown_->emergency(time, record);
  }
  bool ranged(platform::Date, const BRLRecordList&) override { return false; }
  bool left(platform::Date time, const BRLBeaconSnapshot& record) override {
    return shown_->left(time, record);
  }
  bool returned(platform::Date time, const BRLBeaconSnapshot& record) override {
    return shown_->returned(time, record);
  }
  void radio(platform::Date time, const platform::RadioState& state) override { shown_->radio(time, state); }
  bool record(const Record& record) override {
    return std::holds_alternative<BeaconEvent>(record) && shown_->record(record);
  }
  void refused(const Reading& reading) override { shown_->refused(reading); }
  void tick(platform::Date now) override { shown_->tick(now); }
  std::chrono::milliseconds period() const override { return shown_->period(); }
  void makeRoom() override { shown_->makeRoom(); }
  void finish() override { shown_->finish(); }

 private:
  using Key = std::tuple<BRLOptionalText, int64_t, int64_t>;
  struct Reported {
    int64_t status = 0;
    bool isEmergency = false;
  };

  Reported& reportedOf(const BRLBeaconSnapshot& record) {
    return reported_[{record.uuid, record.major, record.minor}];
  }

  const std::unique_ptr<SearchEvents> shown_;
  std::map<Key, Reported> reported_;
};

}  // namespace

std::unique_ptr<SearchEvents> makeTransitions(std::unique_ptr<SearchEvents> shown) {
  return std::make_unique<Transitions>(std::move(shown));
}

}  // namespace brenloft
