#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "gateway/metrics/Metrics.h"
#include "gateway/metrics/MetricsBook.h"
#include "gateway/metrics/MetricsFile.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;

constexpr platform::Date kToldBegin(std::chrono::microseconds(1'795'255'200'123'456));
const BeaconId kToldFridge = BeaconId::sensor("C0-C1-5C-00-00-01");
const BeaconId kToldStranger = BeaconId::sensor("C0-C1-5C-00-00-02");

MetricsSnapshot everything() {
  MetricsSnapshot snapshot{.version = "1.2.3", .made = kToldBegin, .omittedReadings = 7};
  snapshot.beacons = {{.beacon = kToldFridge,
                       .label = {"The \"old\" \\ fridge\n", "Kitchen\xFF"},
                       .isPresent = true,
                       .heard = kToldBegin - 1500ms,
                       .readings = 3,
                       .shown = {.temperature = -36, .humidity = 3870, .battery = 69, .emergency = 1},
                       .rssi = -49,
                       .alarms = {{"too warm", AlarmSeverity::critical, true}}},
                      {.beacon = kToldStranger, .isPresent = false}};
  snapshot.judged = BeaconCensus{.byVerdict = {1, 2, 3, 4, 5, 6, 7}};
  snapshot.dropped = 8;
  snapshot.history = HistoryWriter::Counts{1, 2, 3, 4, 5};
  snapshot.outputs = {{"history", false, 4}};
  return snapshot;
}

TEST(Metrics, SayEverythingInThePrometheusTextFormat) {
  std::string samples;
  std::string header;
  std::size_t position = 0;
  for (const std::string text = renderMetrics(everything()); position < text.size();) {
    const std::size_t end = text.find('\n', position);
    const std::string line = text.substr(position, end - position + 1);
    (line.front() == '#' ? header : samples) += line;
    position = end + 1;
  }
  const std::string fridge = R"({beacon="C0-C1-5C-00-00-01",name="The \"old\" \\ fridge?"})";
  EXPECT_EQ(samples, fmt::format(R"(brenloft_build_info{{version="1.2.3"}} 1
brenloft_metrics_timestamp_seconds 1795255200.123
brenloft_radio_listening 1
brenloft_omitted_readings_total 7
brenloft_readings_total{{verdict="plausible"}} 1
brenloft_readings_total{{verdict="temperature"}} 2
brenloft_readings_total{{verdict="humidity"}} 3
brenloft_readings_total{{verdict="battery"}} 4
brenloft_readings_total{{verdict="identity"}} 5
brenloft_readings_total{{verdict="unknown"}} 6
brenloft_readings_total{{verdict="ignored"}} 7
brenloft_dropped_readings_total 8
brenloft_output_working{{output="history"}} 0
brenloft_output_dropped_records_total{{output="history"}} 4
brenloft_history_records_total{{outcome="written"}} 1
brenloft_history_records_total{{outcome="thinned"}} 2
brenloft_history_records_total{{outcome="implausible"}} 3
brenloft_history_records_total{{outcome="dropped"}} 4
brenloft_history_waiting_records 5
brenloft_beacon_info{{beacon="C0-C1-5C-00-00-01",name="The \"old\" \\ fridge?",place="Kitchen?",kind="sensor"}} 1
brenloft_beacon_info{{beacon="C0-C1-5C-00-00-02",kind="sensor"}} 1
brenloft_beacon_present{0} 1
brenloft_beacon_present{1} 0
brenloft_beacon_last_reading_timestamp_seconds{0} 1795255198.623
brenloft_beacon_readings_total{0} 3
brenloft_beacon_readings_total{1} 0
brenloft_beacon_temperature_celsius{0} -0.36
brenloft_beacon_humidity_ratio{0} 0.3870
brenloft_beacon_battery_ratio{0} 0.69
brenloft_beacon_rssi_dbm{0} -49
brenloft_beacon_emergency{0} 1
brenloft_alarm_raised{{alarm="too warm",severity="critical",beacon="C0-C1-5C-00-00-01",name="The \"old\" \\ fridge?"}} 1
)",
                                 fridge, R"({beacon="C0-C1-5C-00-00-02"})"));
  EXPECT_NE(header.find("# HELP brenloft_beacon_rssi_dbm Strength of the newest reading's signal.\n"
                        "# TYPE brenloft_beacon_rssi_dbm gauge\n"),
            std::string::npos)
      << header;
  EXPECT_EQ(renderMetrics({}).find("beacon_"), std::string::npos) << "no header without a sample";
}

std::set<std::string> namesIn(const std::string& text) {
  static const std::regex name("brenloft_[a-z_]+[a-z]");
  return {std::sregex_token_iterator(text.begin(), text.end(), name), {}};
}

TEST(Metrics, AreNamedInTheirDescriptionTheRulesAndTheDashboard) {
  const std::filesystem::path source = BRENLOFT_SOURCE_DIR;
  const std::set<std::string> told = namesIn(renderMetrics(everything()));
  EXPECT_EQ(namesIn(test::contentsOf(source / "docs/metrics.md")), told);
  for (const char* file : {"alerts.yml", "alerts_test.yml", "dashboard.json"}) {
    const std::set<std::string> used = namesIn(test::contentsOf(source / "examples/prometheus" / file));
    EXPECT_FALSE(used.empty()) << file;
    for (const std::string& name : used) EXPECT_TRUE(told.contains(name)) << file << ": " << name;
  }
}

TEST(Metrics, AreWrittenWholeAndAgainWhereTheyCouldNotBe) {
  const auto dispatch = platform::VirtualDispatch::make();
  const test::TemporaryFolder folder;
  const std::filesystem::path place = folder / "place";
  std::vector<std::string> states;
  int made = 0;
  MetricsFile file(
      place / "metrics", dispatch, dispatch->createQueue("gateway"), [&] { return std::to_string(++made); },
      [&](const Sink::State& state) { states.push_back(state.isWorking ? "working" : state.reason); });
  file.writeEvery(10s);
  dispatch->advance(29s);
  EXPECT_EQ(states, std::vector<std::string>{"No such file or directory"}) << "told once";
  std::filesystem::create_directory(place);
  dispatch->advance(1s);
  EXPECT_EQ(states.back(), "working");
  EXPECT_EQ(test::contentsOf(place / "metrics"), "4");
  file.flush();
  EXPECT_EQ(test::contentsOf(place / "metrics"), "5");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 1) << "nothing stays beside it";
}

class Monitored : public testing::Test {
 protected:
  Monitored() { settings_->beacons[kToldFridge].name = "Fridge"; }

  void hear(const BeaconId& beacon, std::chrono::seconds at) {
    book_.accept(BeaconEvent{.beacon = beacon, .heard = kToldBegin + at, .kind = BeaconEvent::Kind::found});
    book_.accept(
        Reading{.beacon = beacon, .heard = kToldBegin + at, .rssi = -50, .shown = {.temperature = 500}});
  }
  void happen(BeaconEvent::Kind kind, const std::optional<BeaconId>& beacon, std::string text = {}) {
    book_.accept(BeaconEvent{.beacon = beacon, .heard = kToldBegin, .kind = kind, .text = std::move(text)});
  }
  // What is told of each beacon: + or - or ? for its presence, and its temperature.
  std::string told(std::chrono::seconds at, std::optional<bool> isWritten = std::nullopt) const {
    std::string text;
    for (const BeaconMetrics& one : book_.snapshot(kToldBegin + at, isWritten).beacons) {
      text += one.beacon == kToldFridge ? 'F' : 's';
      text += !one.isPresent ? '?' : *one.isPresent ? '+' : '-';
      if (one.shown.temperature && one.rssi) text += std::to_string(*one.shown.temperature);
      for (const AlarmMetrics& alarm : one.alarms) text += alarm.isRaised ? '!' : '.';
    }
    return text;
  }

  std::shared_ptr<Settings> settings_ = std::make_shared<Settings>();
  MetricsBook book_{[this] { return settings_; }};
};

TEST_F(Monitored, TellsNoValueOfWhoIsSilent) {
  EXPECT_EQ(told(0s), "F-") << "named, and not heard yet";
  hear(kToldFridge, 0s);
  hear(kToldStranger, 0s);
  EXPECT_EQ(told(60s), "F+500s+500");
  EXPECT_EQ(told(61s), "F?") << "nobody says that it was lost";
  EXPECT_EQ(told(1h, true), "F+500s+500") << "whoever writes the history would say so";
  EXPECT_EQ(told(0s, false), "F?");
  hear(kToldFridge, 600s);
  EXPECT_EQ(told(2400s), "F+500") << "ten minutes are usual";
  settings_->beacons[kToldFridge].exitTime = ExitTime{1h};
  EXPECT_EQ(told(600s + 1h), "F+500");
  EXPECT_EQ(told(601s + 1h), "F?");
  happen(BeaconEvent::Kind::radio, {}, "poweredOff (blocked)");
  EXPECT_EQ(told(601s), "F?");
  happen(BeaconEvent::Kind::radio, {}, "poweredOn");
  EXPECT_EQ(told(30s), "F+500s+500");
  happen(BeaconEvent::Kind::lost, kToldFridge);
  happen(BeaconEvent::Kind::lost, kToldStranger);
  EXPECT_EQ(told(601s), "F-") << "a stranger is gone with everything";

  settings_->alarms = {{.name = "cold"}, {.name = "warm", .beacon = kToldStranger}};
  happen(BeaconEvent::Kind::alarmRaised, kToldStranger, "warm");
  happen(BeaconEvent::Kind::alarmRaised, kToldFridge, "warm");
  EXPECT_EQ(told(601s), "F-.s-.!") << "what is raised is told until it is cleared";
  happen(BeaconEvent::Kind::alarmCleared, kToldStranger, "warm");
  EXPECT_EQ(told(601s), "F-.");
}

TEST_F(Monitored, TellsOfSoManyStrangersAndOfEveryoneNamed) {
  const auto stranger = [](int number) {
    return BeaconId::sensor(fmt::format("C0-C1-5C-00-01-{:02X}", number));
  };
  constexpr int kMany = static_cast<int>(MetricsBook::kMostStrangers);
  for (int i = 0; i < kMany + 10; ++i) hear(stranger(i), 0s);
  hear(kToldFridge, 0s);
  MetricsSnapshot snapshot = book_.snapshot(kToldBegin);
  EXPECT_EQ(snapshot.beacons.size(), MetricsBook::kMostStrangers + 1);
  EXPECT_EQ(snapshot.omittedReadings, 10U);

  happen(BeaconEvent::Kind::lost, stranger(0));
  hear(stranger(kMany), 1h);
  EXPECT_EQ(book_.snapshot(kToldBegin).omittedReadings, 11U)
      << "who comes and goes makes no new series at once";
  hear(stranger(kMany), 24h);
  snapshot = book_.snapshot(kToldBegin + 24h);
  EXPECT_EQ(snapshot.omittedReadings, 11U);
  EXPECT_EQ(snapshot.beacons.back().beacon, stranger(kMany));
}

TEST_F(Monitored, TakesUpWhatTheHistoryKnew) {
  const auto latest = [](const BeaconId& beacon) {
    return HistoryBeacon{
        beacon,
        HistoryRow{
            1, Reading{.beacon = beacon, .heard = kToldBegin, .rssi = -50, .shown = {.temperature = 500}}}};
  };
  settings_->alarms = {{.name = "cold"}};
  book_.restore({{.owner = "beacon", .subject = kToldFridge.text(), .text = "p|"},
                 {.owner = "alarm:cold", .subject = kToldFridge.text(), .text = "r"}},
                {latest(kToldFridge), latest(kToldStranger)});
  EXPECT_EQ(told(0s), "F+500!") << "the stranger was lost";
  EXPECT_EQ(book_.snapshot(kToldBegin).beacons.front().readings, 0U);
  EXPECT_EQ(told(1h, true), "F?!") << "who writes now may never have heard it";
  hear(kToldFridge, 0s);
  EXPECT_EQ(told(1h, true), "F+500!");
  book_.writerEnded();
  EXPECT_EQ(told(1h, true), "F?!") << "another one writes";
}

TEST_F(Monitored, TellsAnAlarmOfWhoWasNeverHeardOrIsLost) {
  settings_->alarms = {{.name = "gone"}};
  happen(BeaconEvent::Kind::alarmRaised, kToldFridge, "gone");
  EXPECT_EQ(told(0s), "F-!");

  MetricsBook restarted{[this] { return settings_; }};
  restarted.restore(
      {{.owner = "alarm:gone", .subject = kToldFridge.text(), .text = "r"},
       {.owner = "alarm:gone", .subject = kToldStranger.text(), .text = "r"}},
      {HistoryBeacon{kToldStranger, HistoryRow{1, Reading{.beacon = kToldStranger, .heard = kToldBegin}}}},
      "poweredOff (blocked)");
  const MetricsSnapshot snapshot = restarted.snapshot(kToldBegin);
  EXPECT_FALSE(snapshot.isListening);
  ASSERT_EQ(snapshot.beacons.size(), 2U);
  for (const BeaconMetrics& one : snapshot.beacons) {
    EXPECT_TRUE(one.alarms[0].isRaised);
    EXPECT_FALSE(one.isPresent);
  }
}

}  // namespace
}  // namespace brenloft
