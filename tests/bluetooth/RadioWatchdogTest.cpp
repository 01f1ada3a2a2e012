#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/radios/GapStatistics.h"
#include "platform/bluetooth/radios/ScanWatchdog.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/Hex.h"
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
    watched_->open(
        [this](const AdvertisingReport& report) {
          reports_.push_back(report.address.text());
          if (inHandler_) inHandler_();
        },
        [this](const RadioState& state) {
          states_.push_back(std::to_string(static_cast<int>(state.state)) + " " + state.reason);
          if (inHandler_) inHandler_();
        });
    dispatch_->runDue();
  }
  void TearDown() override {
    if (watched_) watched_->close();
  }

  std::shared_ptr<AdvertisingReportSource> make(const dispatch_queue_t& queue) {
    sources_.push_back(std::make_shared<ScriptedReportSource>(queue));
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
  std::function<void()> inHandler_;
  std::shared_ptr<AdvertisingReportSource> watched_ = makeScanWatchdog(
      {.makeSource = [this](const auto& queue) { return make(queue); }, .dispatch = dispatch_});
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
  EXPECT_THAT(states, testing::Contains(HasSubstr("1 nothing heard for 420 s: ")))
      << "since it was, not since the radio is open";

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

TEST_F(Watchdog, ClosedByWhoHearsOfARestartItOpensNothingMore) {
  watched_->startScan({});
  dispatch_->advance(61s);
  inHandler_ = [&] { watched_->close(); };
  dispatch_->advance(1h);
  EXPECT_THAT(states_.back(), HasSubstr("the radio is opened anew"));
  EXPECT_EQ(sources_.size(), 1U);
  EXPECT_THAT(sources_[0]->takeNotes(), testing::Contains("close"));
}

void hearAt(GapStatistics& gaps, double seconds, uint32_t beacon = 1) {
  gaps.heard(CBUUID::fromShort(beacon), dateWithTimeIntervalSince1970(seconds));
}

TEST(GapStatistics, TellsHowLongABeaconUsuallyStaysUnheard) {
  struct Case {
    const char* name;
    std::vector<double> heardAt;  ///< seconds
    std::optional<double> usual;
  };
  const Case cases[] = {
      {"too few to tell", {1, 2, 3}, {}},
      {"one long absence does not count", {1, 11, 21, 31, 3600, 3610}, 10},
      {"other channels are no gaps", {1, 1.001, 1.002, 2, 2.001, 2.002, 3, 3.001, 3.002, 4}, 1},
      {"only the newest gaps count",
       {1, 2, 3, 4, 5, 15, 25, 35, 45, 55, 65, 75, 85, 95, 105, 115, 125, 135, 145, 155},
       10},
      {"a clock that went back", {100, 101, 102, 50, 51}, 1},
  };
  for (const auto& [name, heardAt, usual] : cases) {
    GapStatistics gaps;
    for (const double time : heardAt) hearAt(gaps, time);
    const auto found = gaps.usualGap();
    ASSERT_EQ(found.has_value(), usual.has_value()) << name;
    EXPECT_NEAR(std::chrono::duration<double>(found.value_or(0s)).count(), usual.value_or(0), 0.01) << name;
  }

  // One fast beacon does not hide that most are slow; changing services do not grow the memory.
  GapStatistics gaps;
  for (int i = 0; i < 1000; ++i) hearAt(gaps, 1 + i * 0.1);
  for (int turn = 0; turn < 10; ++turn)
    for (const uint32_t beacon : {2U, 3U}) hearAt(gaps, 1 + turn * 10, beacon);
  EXPECT_EQ(gaps.usualGap(), GapStatistics::Gap(10s));
  for (uint32_t i = 0; i < 100'000; ++i) hearAt(gaps, 200, 4 + i);
  EXPECT_LE(gaps.beaconCount(), 4096U);
}

const std::string kManufacturer = "05ff88090102";
const std::string kServiceFFF0 = "0303f0ff";
const std::string kSensor = kManufacturer + kServiceFFF0;

/// The lines of a warning that hears a device for five minutes, every 10.2 s; `scanResponse` comes with it.
std::vector<std::string> warnedOf(ExitTimeWarning& warning, const std::string& advertisement,
                                  const std::string& scanResponse = {}) {
  std::vector<std::string> said;
  const auto hear = [&](double time, AdvertisingKind kind, const std::string& hex) {
    const Data data = octetsFromHex(hex).value();
    const auto address = BluetoothAddress::fromText(kBeacon).value();
    const auto text = warning.heard(
        {.time = dateWithTimeIntervalSince1970(time), .address = address, .kind = kind, .data = data});
    if (text) said.push_back(*text);
  };
  for (int turn = 0; turn < 30; ++turn) {
    const double time = 1 + turn * 10.2;
    hear(time, AdvertisingKind::scannable, advertisement);
    hear(time + 0.03, AdvertisingKind::scanResponse, scanResponse);
  }
  return said;
}

TEST(ExitTimeWarning, WarnsOnceWithBothFigures) {
  ExitTimeWarning warning(5);
  const auto said = warnedOf(warning, kSensor);
  ASSERT_EQ(said.size(), 1U);
  EXPECT_THAT(said[0], HasSubstr("every 10.2 s"));
  EXPECT_THAT(said[0], HasSubstr("after 5.0 s"));
  EXPECT_THAT(said[0], HasSubstr("exit time of 31 s"));

  ExitTimeWarning enough(31);
  EXPECT_THAT(warnedOf(enough, kSensor), IsEmpty());
}

TEST(ExitTimeWarning, GoesByTheSensorsThatAreLookedFor) {
  struct Case {
    const char* name;
    std::string advertisement, scanResponse;
    uint32_t wanted;
    bool isWarned;
  };
  for (const auto& [name, advertisement, scanResponse, wanted, isWarned] :
       {Case{"a sensor", kSensor, {}, 0, true}, Case{"the sensor", kSensor, {}, 0xFFF0, true},
        Case{"the service in the scan response", kManufacturer, kServiceFFF0, 0xFFF0, true},
        Case{"another sensor", kSensor, {}, 0x180F, false}, Case{"a phone", kManufacturer, {}, 0, false},
        Case{"a watch", kServiceFFF0, {}, 0, false}}) {
    ExitTimeWarning warning(5);
    if (wanted != 0) warning.want({CBUUID::fromShort(wanted)});
    EXPECT_EQ(!warnedOf(warning, advertisement, scanResponse).empty(), isWarned) << name;
  }

  // Ten slow sensors of one service are one beacon, of which something is heard all the time.
  ExitTimeWarning warning(5);
  const Data sensor = octetsFromHex(kSensor).value();
  for (int i = 0; i < 300; ++i) {
    AdvertisingReport report{.time = dateWithTimeIntervalSince1970(i), .data = sensor};
    report.address.octets[5] = static_cast<uint8_t>(1 + i % 10);
    EXPECT_FALSE(warning.heard(report));
  }
}

}  // namespace
