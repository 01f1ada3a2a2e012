#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gateway/alarms/AlarmBook.h"
#include "gateway/alarms/DewPoint.h"
#include "gateway/configuration/SettingsParser.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const platform::Date kSeriesStart = std::chrono::sys_days(std::chrono::year(2026) / 3 / 1);

std::shared_ptr<const Settings> rulesOf(const std::string& alarms) {
  const auto parsed = parseSettings(
      "[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"fridge\"\nplace = \"kitchen\"\n"
      "[beacon.\"C0-C1-5C-00-00-02\"]\nname = \"oven\"\nplace = \"kitchen\"\n" +
          alarms,
      {});
  return std::make_shared<Settings>(std::get<Settings>(parsed));
}

// What a rule does to a series of lines such as "10 fridge temperature 8.5", "20 radio down", "30 end".
class AlarmsWorld {
 public:
  explicit AlarmsWorld(const std::string& alarms) : settings_(rulesOf(alarms)) {
    start();
    book_->restore({});
  }

  void playLine(const std::string& line) {
    std::istringstream words(line);
    double second = 0;
    std::string name;
    std::string quantity;
    words >> second >> name >> quantity;
    const auto instant = from_ + std::chrono::milliseconds(std::llround(second * 1000));
    if (isBusy) dispatch_->skip(instant - dispatch_->now());
    if (!isBusy || name == "end") dispatch_->advanceTo(instant);
    if (name == "radio") return book_->radio(quantity == "up");
    if (name == "end") return;
    Reading reading{.beacon = idOf(name), .heard = dispatch_->date()};
    double value = 0;
    while (words >> value) set(reading, quantity, value), words >> quantity;
    if (quantity == "implausible") reading.verdict = Verdict::temperature;
    if (reading.verdict == Verdict::plausible) heard_[reading.beacon] = reading.heard;
    last_ = reading.heard;
    book_->heard(reading);
  }
  void play(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) playLine(line);
  }

  /// As after a kill: only what was kept is known. `play` goes on counting where it stopped.
  void restart(std::chrono::seconds downtime = 0s, const std::string& alarms = {}) {
    book_.reset();
    AlarmsKept kept{.heard = heard_, .stoppedAt = std::max(last_, dispatch_->date())};
    for (const auto& [key, text] : kept_) kept.states.push_back({key.first, key.second, text});
    dispatch_->advance(downtime);
    from_ += downtime;
    if (!alarms.empty()) settings_ = rulesOf(alarms);
    start();
    book_->restore(kept);
  }

  AlarmBook& book() { return *book_; }
  bool isBusy = false;               // the timer comes later than what is heard
  bool isLate = false;               // an event was told after its instant
  std::vector<std::string> events;   // "20 raised NAME"
  std::vector<std::string> notices;  // the same
  std::vector<AlarmFacts> facts;     // of the events

  static BeaconId idOf(const std::string& name) {
    return *BeaconId::fromText(name == "fridge" ? "C0-C1-5C-00-00-01"
                               : name == "oven" ? "C0-C1-5C-00-00-02"
                                                : name);
  }

 private:
  static void set(Reading& reading, const std::string& quantity, double value) {
    const auto hundredths = static_cast<int32_t>(std::lround(value * 100));
    if (quantity == "temperature") reading.shown.temperature = hundredths;
    if (quantity == "humidity") reading.shown.humidity = hundredths;
    if (quantity == "battery") reading.shown.battery = static_cast<int32_t>(value);
    if (quantity == "emergency") reading.shown.emergency = static_cast<int32_t>(value);
    if (quantity == "rssi") reading.rssi = static_cast<int32_t>(value);
  }
  std::string when(platform::Date date) const {
    std::ostringstream text;
    text << std::chrono::duration<double>(date - kSeriesStart - from_).count();
    return text.str();
  }
  void start() {
    const auto keep = [this](const KeptState& state) {
      if (state.text)
        kept_[{state.owner, state.subject}] = *state.text;
      else
        kept_.erase({state.owner, state.subject});
    };
    book_ = std::make_unique<AlarmBook>(
        dispatch_, dispatch_->mainQueue(), settings_,
        AlarmBook::Handlers{
            .onEvent =
                [this, keep](const BeaconEvent& event, const KeptState& state) {
                  const bool isRaised = event.kind == BeaconEvent::Kind::alarmRaised;
                  isLate = isLate || event.heard != dispatch_->date();
                  events.push_back(when(event.heard) + (isRaised ? " raised " : " cleared ") + event.text);
                  facts.push_back(event.alarm.value_or(AlarmFacts{}));
                  keep(state);
                },
            .onState = keep,
            .onNotice =
                [this](const AlarmNotice& notice) {
                  notices.push_back(when(notice.at) + (notice.isRaised ? " raised " : " cleared ") +
                                    notice.rule.name);
                }});
  }

  const std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make(kSeriesStart);
  std::chrono::microseconds from_{};  // where second 0 is
  std::shared_ptr<const Settings> settings_;
  std::unique_ptr<AlarmBook> book_;
  std::map<std::pair<std::string, std::string>, std::string> kept_;
  std::map<BeaconId, platform::Date> heard_;
  platform::Date last_ = kSeriesStart;
};

const std::string kWarm =
    "[[alarm]]\nname = \"warm\"\nbeacon = \"fridge\"\nquantity = \"temperature\"\nabove = 8\n";
const std::string kGone = "[[alarm]]\nname = \"gone\"\nsilent = 100\n";

struct Series {
  std::string rule;
  std::vector<std::string> lines;
  std::vector<std::string> events;
};
const Series kSeries[] = {
    // At once, at the first value beyond the limit and no sooner.
    {kWarm,
     {"1 fridge temperature 8", "2 fridge temperature 8.01", "3 fridge temperature 9",
      "4 fridge temperature 8"},
     {"2 raised warm", "4 cleared warm"}},
    // A hold ends at its own instant, without a value; one good value begins it anew.
    {kWarm + "for = 60\n",
     {"0 fridge temperature 9", "59 fridge temperature 8", "60 fridge temperature 9", "200 end"},
     {"120 raised warm"}},
    // No value is no answer: not for a hold, and not for what is raised. What is not believed is not heard.
    {kWarm + "for = 60\n",
     {"0 fridge temperature 9", "30 fridge battery 50", "40 fridge temperature 1 implausible",
      "70 fridge battery 50", "80 fridge temperature 1"},
     {"60 raised warm", "80 cleared warm"}},
    // A hold waits for a radio that is down.
    {kWarm + "for = 60\n",
     {"0 fridge temperature 9", "50 radio down", "150 radio up", "200 end"},
     {"160 raised warm"}},
    {kWarm + "hysteresis = 0.5\n",
     {"0 fridge temperature 9", "1 fridge temperature 7.51", "2 fridge temperature 7.5",
      "3 fridge temperature 7.9"},
     {"0 raised warm", "2 cleared warm"}},
    {kWarm + "below = 2\nhysteresis = 0.5\n",
     {"0 fridge temperature 1.9", "1 fridge temperature 2.4", "2 fridge temperature 2.5",
      "3 fridge temperature 9"},
     {"0 raised warm", "2 cleared warm", "3 raised warm"}},
    // After the cooldown it is raised if it still is beyond the limit, and only then.
    {kWarm + "cooldown = 100\n",
     {"0 fridge temperature 9", "10 fridge temperature 1", "20 fridge temperature 9",
      "110 fridge temperature 1", "120 fridge temperature 9", "130 fridge temperature 1",
      "190 fridge temperature 9", "195 fridge temperature 1", "250 end"},
     {"0 raised warm", "10 cleared warm", "100 raised warm", "110 cleared warm"}},
    // Silence counts from the start, also of one that is never heard, and only while the radio listens.
    {kGone,
     {"50 fridge rssi -50", "120 radio down", "400 radio up", "500 oven rssi -50", "510 fridge rssi -50",
      "600 end"},
     {"100 raised gone", "430 raised gone", "500 cleared gone", "510 cleared gone", "600 raised gone"}},
    // Strangers come and go.
    {kGone, {"1 C0-C1-5C-00-00-09 rssi -50", "99 fridge rssi -50", "99 oven rssi -50", "150 end"}, {}},
    {"[[alarm]]\nname = \"help\"\nemergency = true\n",
     {"1 C0-C1-5C-00-00-09 emergency 0", "2 C0-C1-5C-00-00-09 emergency 1", "3 C0-C1-5C-00-00-09 rssi -50",
      "4 C0-C1-5C-00-00-09 emergency 0"},
     {"2 raised help", "4 cleared help"}},
    {"[[alarm]]\nname = \"weak\"\nplace = \"kitchen\"\nquantity = \"rssi\"\nbelow = -80\n",
     {"1 C0-C1-5C-00-00-09 rssi -90", "2 oven rssi -81"},
     {"2 raised weak"}},
    // The shorter hold ends first, although it began later.
    {kWarm + "for = 60\n[[alarm]]\nname = \"hot\"\nquantity = \"temperature\"\nabove = 20\nfor = 5\n",
     {"0 fridge temperature 9", "10 fridge temperature 30", "100 end"},
     {"15 raised hot", "60 raised warm"}},
    {"[beacon.\"C0-C1-5C-00-00-03\"]\nignore = true\n[[alarm]]\nname = \"weak\"\nquantity = \"rssi\"\nbelow "
     "= -80\n",
     {"1 C0-C1-5C-00-00-03 rssi -90"},
     {}},
    {"[[alarm]]\nname = \"wet\"\nquantity = \"dew-point\"\nabove = 9.25\n",
     {"1 oven temperature 20", "2 oven temperature 20 humidity 49.9", "3 oven temperature 20 humidity 50"},
     {"3 raised wet"}},
};

TEST(AlarmsTest, AreRaisedAndClearedAtTheirInstants) {
  for (const Series& series : kSeries) {
    AlarmsWorld world(series.rule);
    world.play(series.lines);
    EXPECT_EQ(world.events, series.events) << series.rule << testing::PrintToString(series.lines);
    EXPECT_FALSE(world.isLate) << series.rule << testing::PrintToString(series.lines);
  }
}

TEST(AlarmsTest, SayWhatTheRuleSaysAndWhichLimitWasPassed) {
  AlarmsWorld world(kWarm + "below = 2\nseverity = \"critical\"\ntext = \"Shut it\"\n" + kGone);
  world.play({"0 fridge temperature 8.5", "1 fridge temperature 5", "2 fridge temperature 1.5",
              "3 fridge temperature 9", "4 fridge temperature 8"});
  const auto warm = [](int value, int threshold) {
    return AlarmFacts{AlarmSeverity::critical, AlarmQuantity::temperature, value, threshold, "Shut it"};
  };
  EXPECT_THAT(world.facts, ElementsAre(warm(850, 800), warm(500, 800), warm(150, 200), warm(800, 800)));
  world.play({"200 end"});
  EXPECT_EQ(world.facts.back(), (AlarmFacts{.quantity = AlarmQuantity::silence, .threshold = 100}));
}

TEST(AlarmsTest, AreTheSameWhereverTheProgramIsKilledAndStartedAgain) {
  for (const Series& series : kSeries) {
    for (std::size_t cut = 0; cut < series.lines.size(); ++cut) {
      if (series.lines[cut].find("down") != std::string::npos) continue;  // it would be down from the start
      AlarmsWorld world(series.rule);
      for (std::size_t i = 0; i < series.lines.size(); ++i) {
        world.playLine(series.lines[i]);
        if (i == cut) world.restart(3600s);
      }
      EXPECT_EQ(world.events, series.events) << series.rule << "restarted after " << series.lines[cut];
    }
  }
}

TEST(AlarmsTest, HaveTheSameInstantsWhereTheirTimerComesTooLate) {
  for (const Series& series : kSeries) {
    AlarmsWorld world(series.rule);
    world.isBusy = true;
    world.play(series.lines);
    EXPECT_THAT(world.events, testing::UnorderedElementsAreArray(series.events)) << series.rule;
  }
}

// One second after another, from the whole list of what was heard until then.
std::vector<RuleEvent> slowly(const AlarmRule& rule, const std::vector<std::optional<int32_t>>& values) {
  std::vector<RuleEvent> events;
  bool isRaised = false;
  std::optional<std::size_t> raisedAt;
  const auto isBeyond = [&](std::size_t second) { return *values[second] > *rule.above; };
  for (std::size_t now = 0; now < values.size(); ++now) {
    const auto raiseWhenLongEnough = [&](std::size_t known) {
      std::optional<std::size_t> first;
      std::optional<int32_t> newest;
      for (std::size_t i = 0; i < known; ++i) {
        if (!values[i]) continue;
        if (!isBeyond(i)) first.reset();
        if (isBeyond(i) && !first) first = i;
        newest = values[i];
      }
      const bool isLongEnough = first && ListenedTime(std::chrono::seconds(now - *first)) >= rule.hold;
      const bool hasRested = !raisedAt || std::chrono::seconds(now - *raisedAt) >= rule.cooldown;
      if (isRaised || !isLongEnough || !hasRested) return;
      isRaised = true;
      raisedAt = now;
      events.push_back({true, std::chrono::seconds(now), newest});
    };
    raiseWhenLongEnough(now);
    if (isRaised && values[now] && *values[now] <= *rule.above - rule.hysteresis) {
      isRaised = false;
      events.push_back({false, std::chrono::seconds(now), values[now]});
    }
    raiseWhenLongEnough(now + 1);
  }
  return events;
}

TEST(AlarmsTest, StepLikeASlowObviousModel) {
  std::mt19937 random(1);
  const auto any = [&](int32_t least, int32_t most) {
    return std::uniform_int_distribution<int32_t>(least, most)(random);
  };
  for (int round = 0; round < 2000; ++round) {
    const AlarmRule rule{.name = "warm",
                         .above = 5,
                         .hysteresis = any(0, 2),
                         .hold = std::chrono::seconds(any(0, 6)),
                         .cooldown = std::chrono::seconds(any(0, 12))};
    std::vector<std::optional<int32_t>> values(60);
    for (auto& value : values)
      if (any(0, 2) != 0) value = any(2, 8);
    std::vector<RuleEvent> events;
    RuleState state;
    for (std::size_t now = 0; now < values.size(); ++now) {
      // Time alone is told only now and then: a late step says the same.
      if (!values[now] && any(0, 1) != 0 && now + 1 != values.size()) continue;
      const RuleStep next = step(rule, state, values[now], std::chrono::seconds(now));
      state = next.state;
      events.insert(events.end(), next.events.begin(), next.events.end());
    }
    ASSERT_EQ(events, slowly(rule, values)) << "round " << round;
  }
}

TEST(AlarmsTest, KeepTheirStateByTheirNameWhenTheSettingsChange) {
  AlarmsWorld world(kWarm + "for = 60\n" + kGone);
  world.playLine("0 fridge temperature 9");
  world.book().setSettings(rulesOf(kWarm + "for = 30\n"));
  world.playLine("35 end");
  EXPECT_THAT(world.events, ElementsAre("30 raised warm"));
  EXPECT_EQ(world.book().raised(AlarmsWorld::idOf("fridge"))[0].since, kSeriesStart + 30s);
  world.events.clear();

  world.book().setSettings(rulesOf(kGone + kWarm + "hysteresis = 3\n"));
  world.play({"40 fridge temperature 6", "41 fridge temperature 5"});
  EXPECT_THAT(world.events, ElementsAre("41 cleared warm"));
  world.events.clear();

  world.playLine("42 fridge temperature 9");
  world.book().setSettings(rulesOf(kGone));
  EXPECT_THAT(world.book().raised(AlarmsWorld::idOf("fridge")), IsEmpty());
  world.restart(0s, kWarm);
  world.playLine("60 end");
  EXPECT_THAT(world.events, ElementsAre("42 raised warm", "42 cleared warm"));
  world.events.clear();

  // The rule goes while the program does not run.
  world.playLine("61 fridge temperature 9");
  world.restart(10s, kGone);
  EXPECT_THAT(world.events, ElementsAre("61 raised warm", "61 cleared warm"));
}

TEST(AlarmsTest, BeginAHoldAnewForAnotherLimitAndHoldItWhileTheRadioIsDown) {
  AlarmsWorld world(kWarm + "for = 60\n");
  world.playLine("0 fridge temperature 9");
  world.book().setSettings(
      rulesOf("[[alarm]]\nname = \"warm\"\nquantity = \"temperature\"\nabove = 8.5\nfor = 60\n"));
  world.play({"30 fridge temperature 9", "100 end"});
  EXPECT_THAT(world.events, ElementsAre("90 raised warm"));

  AlarmsWorld other(kWarm + "for = 60\n");
  other.play({"0 fridge temperature 9", "50 radio down", "100 end"});
  other.restart();
  other.playLine("200 end");
  EXPECT_THAT(other.events, ElementsAre("110 raised warm"));
}

TEST(AlarmsTest, TellAgainAfterARestartWhatWasNotDealtWith) {
  AlarmsWorld world(kWarm + "exec = [\"/bin/true\"]\n");
  world.play({"1 fridge temperature 9", "2 fridge temperature 1"});
  world.notices.clear();
  world.book().notified("warm", AlarmsWorld::idOf("fridge"));
  world.restart();
  EXPECT_THAT(world.notices, ElementsAre("2 cleared warm"));
  world.book().notified("warm", AlarmsWorld::idOf("fridge"));
  world.restart();
  EXPECT_EQ(world.notices.size(), 1U);
}

TEST(AlarmsTest, DewPointIsThatOfPsychrometricTables) {
  const auto isNear = [](std::optional<int32_t> point, double expected) {
    return point && std::abs(*point / 100.0 - expected) <= 0.05;
  };
  EXPECT_TRUE(isNear(dewPoint(2000, 5000), 9.3));
  EXPECT_TRUE(isNear(dewPoint(2500, 6000), 16.7));
  EXPECT_TRUE(isNear(dewPoint(3000, 8000), 26.2));
  EXPECT_EQ(dewPoint(1234, 10'000), 1234);
  EXPECT_EQ(dewPoint(1234, 0), std::nullopt);
  EXPECT_EQ(dewPoint(-4501, 5000), std::nullopt);
}

}  // namespace
}  // namespace brenloft
