#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/radios/GapStatistics.h"
#include "platform/bluetooth/radios/ScanWatchdog.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/support/ScriptedReportSource.h"

using namespace platform;
using namespace std::chrono_literals;
using support::ScriptedReportSource;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::string kBeacon = "C0:00:00:00:00:01";

/// A watched source on virtual time; every source that the watchdog made, and what came out.
class Watchdog : public testing::Test {
 protected:
  void SetUp() override {
    watched_->open([this](const AdvertisingReport& report) { reports_.push_back(report.address.text()); },
                   [this](const RadioState& state) {
                     states_.push_back(std::to_string(static_cast<int>(state.state)) + " " + state.reason);
                   });
    dispatch_->runDue();
  }
  void TearDown() override { watched_->close(); }

  std::shared_ptr<AdvertisingReportSource> make() {
    sources_.push_back(std::make_shared<ScriptedReportSource>(dispatch_->createQueue("radio")));
    return sources_.back();
  }
  void hear() {
    sources_.back()->hear(kBeacon, AdvertisingKind::connectable, {});
    dispatch_->runDue();
  }
  std::vector<std::string> takeStates() { return std::exchange(states_, {}); }

  std::shared_ptr<VirtualDispatch> dispatch_ = VirtualDispatch::make();
  std::vector<std::shared_ptr<ScriptedReportSource>> sources_;
  std::vector<std::string> reports_;
  std::vector<std::string> states_;
  std::shared_ptr<AdvertisingReportSource> watched_ =
      makeScanWatchdog({.makeSource = [this] { return make(); }, .dispatch = dispatch_});
};

TEST_F(Watchdog, LeavesAloneWhatHearsOrNeedNotHear) {
  dispatch_->advance(1h);  // no scan
  watched_->startScan({});
  for (int i = 0; i < 20; ++i) {
    dispatch_->advance(59s);
    hear();
  }
  sources_[0]->setState(CBManagerState::poweredOff, "off");
  dispatch_->advance(1h);  // no power
  sources_[0]->setState(CBManagerState::poweredOn);
  dispatch_->advance(59s);  // the minute begins with the power
  watched_->stopScan();
  dispatch_->advance(1h);
  EXPECT_THAT(sources_[0]->takeNotes(), ElementsAre("open", "scan", "stop"));
  EXPECT_EQ(sources_.size(), 1U);
  EXPECT_EQ(reports_.size(), 20U);
  EXPECT_THAT(takeStates(), ElementsAre("5 ", "4 off", "5 "));
}

TEST_F(Watchdog, RestartsAfterAMinuteAndThenEverMoreRarely) {
  watched_->startScan({CBUUID::fromShort(0xFFF0)});
  hear();
  takeStates();
  dispatch_->advance(59s);
  EXPECT_THAT(takeStates(), IsEmpty());
  dispatch_->advance(2s);
  EXPECT_THAT(sources_[0]->takeNotes(), ElementsAre("open", "scan FFF0", "stop", "scan FFF0"));
  EXPECT_THAT(takeStates(),
              ElementsAre("5 nothing heard for 60 s: the scan is started anew; the next try comes in 120 s"));

  // From then on the radio is opened anew: 2, 4, 8 and always 15 minutes later.
  std::size_t opened = 1;
  for (const auto pause : {2min, 4min, 8min, 15min, 15min}) {
    dispatch_->advance(pause - 5s);
    EXPECT_EQ(sources_.size(), opened) << pause.count();
    dispatch_->advance(5s);
    EXPECT_EQ(sources_.size(), ++opened) << pause.count();
    EXPECT_THAT(sources_[opened - 2]->takeNotes(), testing::Contains("close"));
    EXPECT_THAT(sources_[opened - 1]->takeNotes(), ElementsAre("open", "scan FFF0"));
  }
  const auto states = takeStates();
  EXPECT_THAT(
      states,
      testing::Contains("1 nothing heard for 180 s: the radio is opened anew; the next try comes in 240 s"));
  EXPECT_EQ(states.back(), "5 ");

  // What an abandoned source still says counts no more.
  sources_[0]->hear("C0:00:00:00:00:99", AdvertisingKind::connectable, {});
  dispatch_->runDue();
  EXPECT_THAT(reports_, ElementsAre(kBeacon));
}

TEST_F(Watchdog, BeginsAnewOnlyAfterTheScanHasBeenWell) {
  watched_->startScan({});
  dispatch_->advance(61s);
  takeStates();
  hear();  // at once after the restart: perhaps only its echo
  EXPECT_THAT(takeStates(), ElementsAre(HasSubstr("5 hearing again after 61 s")));
  dispatch_->advance(110s);
  EXPECT_THAT(takeStates(), IsEmpty()) << "a minute of silence, but the pause is not over";
  dispatch_->advance(20s);
  EXPECT_EQ(sources_.size(), 2U);
  dispatch_->advance(100s);
  hear();
  takeStates();
  dispatch_->advance(61s);
  EXPECT_THAT(takeStates(), ElementsAre(HasSubstr("the scan is started anew")));
}

struct GapCase {
  const char* name;
  std::vector<double> heardAt;  ///< seconds; a negative one is a scan response
  double usual;                 ///< 0: cannot tell
};

AdvertisingReport reportAt(double seconds, uint8_t sender = 1) {
  AdvertisingReport report;
  report.time = dateWithTimeIntervalSince1970(std::abs(seconds));
  report.address.octets[5] = sender;
  report.kind = seconds < 0 ? AdvertisingKind::scanResponse : AdvertisingKind::scannable;
  return report;
}

TEST(GapStatistics, TellsHowLongADeviceUsuallyStaysUnheard) {
  const std::vector<GapCase> cases = {
      {"too few to tell", {1, 2, 3}, 0},
      {"regular", {1, 2, 3, 4}, 1},
      {"one long absence does not count", {1, 11, 21, 31, 3600, 3610}, 10},
      {"scan responses and other channels are no gaps", {1, 1.001, -1.01, 2, -2.01, 3, 3.002, 4}, 1},
      {"only the newest gaps count",
       {1, 2, 3, 4, 5, 15, 25, 35, 45, 55, 65, 75, 85, 95, 105, 115, 125, 135, 145, 155},
       10},
      {"a clock that went back", {100, 101, 102, 50, 51}, 1},
  };
  for (const auto& [name, heardAt, usual] : cases) {
    GapStatistics gaps;
    for (const double time : heardAt) gaps.heard(reportAt(time));
    const auto found = gaps.usualGap();
    EXPECT_EQ(found.has_value(), usual != 0) << name;
    if (found) {
      EXPECT_NEAR(std::chrono::duration<double>(*found).count(), usual, 0.01) << name;
    }
  }

  // One fast device does not hide that most are slow; changing addresses do not grow the memory.
  GapStatistics gaps;
  for (int i = 0; i < 1000; ++i) gaps.heard(reportAt(1 + i * 0.1));
  for (int i = 0; i < 10; ++i) {
    for (const uint8_t slow : {2, 3}) gaps.heard(reportAt(1 + i * 10, slow));
  }
  EXPECT_EQ(gaps.usualGap(), GapStatistics::Gap(10s));
  for (unsigned i = 0; i < 100'000; ++i) {
    auto report = reportAt(200);
    report.address.octets = {
        0x40, 0, 0, static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    gaps.heard(report);
  }
  EXPECT_LE(gaps.deviceCount(), 4096U);
}

TEST(ExitTimeWarning, WarnsOnceWithBothFigures) {
  ExitTimeWarning warning(5);
  std::vector<std::string> said;
  for (double time = 1; time < 300; time += 10.2) {
    if (const auto text = warning.heard(reportAt(time))) said.push_back(*text);
  }
  ASSERT_EQ(said.size(), 1U);
  EXPECT_THAT(said[0], HasSubstr("every 10.2 s"));
  EXPECT_THAT(said[0], HasSubstr("after 5.0 s"));
  EXPECT_THAT(said[0], HasSubstr("exit time of 31 s"));

  ExitTimeWarning enough(31);
  for (double time = 1; time < 300; time += 10.2) EXPECT_FALSE(enough.heard(reportAt(time)));
}

}  // namespace
