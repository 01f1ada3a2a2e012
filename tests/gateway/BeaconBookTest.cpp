#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "gateway/beacons/BeaconBook.h"
#include "gateway/beacons/Judge.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using Time = GapLearner::Time;

const BeaconId kFridge = BeaconId::sensor("C0-C1-5C-00-00-01");
const BeaconId kCellar = BeaconId::sensor("C0-C1-5C-00-00-02");

Reading readingOf(const BeaconId& beacon, Quantities raw) {
  return {.beacon = beacon, .raw = raw};
}

TEST(Judge, BelievesWhatASensorCanMeasure) {
  const std::vector<std::pair<Reading, Verdict>> cases{
      {readingOf(kFridge, {}), Verdict::plausible},
      {readingOf(kFridge, {.temperature = kColdest, .humidity = 0, .battery = 0}), Verdict::plausible},
      {readingOf(kFridge, {.temperature = kHottest, .humidity = kWettest, .battery = 100}),
       Verdict::plausible},
      {readingOf(kFridge, {.temperature = 321'60, .humidity = 325'40, .battery = 240}), Verdict::temperature},
      {readingOf(kFridge, {.temperature = kColdest - 1}), Verdict::temperature},
      {readingOf(kFridge, {.humidity = kWettest + 1}), Verdict::humidity},
      {readingOf(kFridge, {.battery = 101}), Verdict::battery},
      {readingOf(BeaconId::sensor("00-00-00-00-00-00"), {}), Verdict::identity},
      {readingOf(BeaconId::sensor("FF-FF-FF-FF-FF-FF"), {}), Verdict::identity}};
  for (const auto& [reading, verdict] : cases)
    EXPECT_EQ(textOf(judge(reading)), textOf(verdict)) << reading.beacon.text();
}

TEST(GapLearner, WidensAtOnceAndShrinksWhenTheGapIsLongPast) {
  GapLearner gaps;
  EXPECT_EQ(gaps.limit(), GapLearner::kUnlearned);
  EXPECT_EQ(GapLearner(20s).limit(), 60s);
  Time at = 0ms;
  const auto hear = [&](Time gap) { gaps.heard(at += gap); };
  for (int i = 0; i < 20; ++i) hear(1s);
  EXPECT_EQ(gaps.limit(), GapLearner::kLeast);
  EXPECT_EQ(gaps.usualGap(), 1s);
  hear(10min);
  EXPECT_EQ(gaps.limit(), 15min);
  hear(2h);  // it was away
  EXPECT_EQ(gaps.limit(), 15min);
  gaps.radioPaused();
  hear(50min);
  for (std::size_t i = 0; i < GapLearner::kRecent; ++i) hear(1s);
  hear(100min);
  for (std::size_t i = 0; i < GapLearner::kRecent; ++i) hear(1s);
  EXPECT_EQ(gaps.limit(), GapLearner::kLeast) << "sixteen times ten minutes were listened since";
  for (int i = 0; i < 20; ++i) hear(2s);
  hear(10min);
  GapLearner other;
  other.restore(gaps.text(at), 5s);
  EXPECT_EQ(other.text(5s), gaps.text(at));
  EXPECT_EQ(other.limit(), 15min);
  for (const char* text : {"", "x", "-1,5", "99999999999999999999", ";", ";5", ";99999999999:5"}) {
    other.restore(text, 0s);
    EXPECT_EQ(other.limit(), GapLearner::kUnlearned) << text;
  }
}

class Book : public testing::Test {
 protected:
  void open(const BeaconChoice& choice = {}, const std::vector<KeptState>& states = {}) {
    book_.emplace(dispatch_, dispatch_->createQueue("gateway"), settings_, choice,
                  BeaconBook::Handlers{[this](const Reading& reading) { heard(reading); },
                                       [this](const BeaconEvent& event, const KeptState& state) {
                                         note(event);
                                         keep(state);
                                       },
                                       [this](const Reading& reading) { log_ += textOf(reading.verdict); },
                                       [this](const KeptState& state) { keep(state); }});
    book_->restore(states);
  }
  void hear(const BeaconId& beacon, const Quantities& raw = {.emergency = 0}) {
    book_->heard({.beacon = beacon, .heard = dispatch_->date(), .raw = raw});
  }
  void hearFor(std::chrono::nanoseconds duration, std::chrono::nanoseconds gap, const BeaconId& beacon) {
    for (auto end = dispatch_->now() + duration; dispatch_->now() < end; dispatch_->advance(gap))
      hear(beacon);
  }
  /// What was told since the last call; readings as dots.
  std::string log() { return std::exchange(log_, ""); }

  std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make();
  std::shared_ptr<Settings> settings_ = std::make_shared<Settings>();
  std::optional<BeaconBook> book_;
  std::map<std::string, std::string> kept_;
  std::optional<Reading> latest_;
  std::size_t events_ = 0;

 private:
  void heard(const Reading& reading) {
    log_ += '.';
    latest_ = reading;
  }
  void note(const BeaconEvent& event) {
    log_ += std::string(log_.empty() ? "" : " ") + std::string(textOf(event.kind));
    ++events_;
  }
  void keep(const KeptState& state) {
    if (state.text)
      kept_[state.subject] = *state.text;
    else
      kept_.erase(state.subject);
  }

  std::string log_;
};

TEST_F(Book, TellsWhoAppearsIsLostAndSignalsAnEmergency) {
  open();
  hear(kFridge);
  EXPECT_EQ(log(), "found.");
  dispatch_->advance(GapLearner::kUnlearned - 1ms);
  EXPECT_EQ(log(), "");
  dispatch_->advance(1ms);
  EXPECT_EQ(log(), "lost");
  hear(kFridge, {.emergency = 2});
  EXPECT_EQ(log(), "found. emergency");
  hear(kFridge, {.emergency = 1});
  hear(kFridge);
  EXPECT_EQ(log(), ".. emergency_over");
}

TEST_F(Book, LosesABeaconThatBurstsAndSleepsOnceADayAtMost) {
  open();
  for (auto day = dispatch_->now() + 24h; dispatch_->now() < day; dispatch_->advance(10min))
    hearFor(30s, 1s, kFridge);
  EXPECT_LE(events_, 3U) << "found, lost, found";
}

TEST_F(Book, CountsSilenceOnlyWhileTheRadioListens) {
  open();
  hearFor(1min, 1s, kFridge);
  book_->radio(false);
  dispatch_->advance(1h);
  book_->radio(true);
  hearFor(1min, 1s, kFridge);
  EXPECT_EQ(events_, 1U);
  EXPECT_EQ(book_->find(kFridge)->exitTime, GapLearner::kLeast) << "the pause is no gap";
  book_->radio(false);
  dispatch_->advance(1h);
  book_->radio(true);
  log();
  dispatch_->advance(GapLearner::kLeast - 1ms);
  EXPECT_EQ(log(), "");
  dispatch_->advance(1ms);
  EXPECT_EQ(log(), "lost");
}

TEST_F(Book, FollowsTheSettingsOfEachBeacon) {
  settings_->beacons[kFridge] = {.temperatureOffset = -40, .exitTime = ExitTime{2min}};
  settings_->beacons[kCellar].ignore = true;
  open({.exitTime = {5s}, .isKnown = true});
  hear(kFridge, {.temperature = 20, .humidity = 50'00});
  hear(kCellar);
  hear(BeaconId::sensor("C0-C1-5C-00-00-03"));
  hear(kFridge, {.temperature = 321'60});
  EXPECT_EQ(log(), "found.ignoredunknowntemperature");
  EXPECT_EQ(latest_->raw.temperature, 20);
  EXPECT_EQ(latest_->shown, (Quantities{.temperature = -20, .humidity = 50'00}));
  dispatch_->advance(2min);
  EXPECT_EQ(log(), "lost");
  const auto changed = std::make_shared<Settings>();
  changed->beacons[kCellar] = {.humidityOffset = 1};
  book_->setSettings(changed);
  hear(kCellar);
  hear(kFridge);
  EXPECT_EQ(log(), "found.unknown");
  dispatch_->advance(5s);
  EXPECT_EQ(log(), "lost");
  EXPECT_EQ(book_->census().of(Verdict::plausible), 2U);
  EXPECT_EQ(book_->census().of(Verdict::unknown), 2U);

  open({.isPlausible = false, .only = {kFridge}});
  hear(kFridge, {.temperature = 321'60});
  hear(kCellar);
  hear(BeaconId::sensor("C0-C1-5C-00-00-03"));
  EXPECT_EQ(log(), "found.ignoredunknown");
}

TEST_F(Book, TakesUpWhatTheLastRunKnew) {
  open();
  hearFor(1h, 5min, kFridge);
  hear(kFridge, {.emergency = 1});
  hear(kCellar);
  dispatch_->advance(1min);
  std::vector<KeptState> states{{"alarm", kFridge.text(), "p|"}, {BeaconBook::kOwner, "x", "p|"}};
  for (const auto& [beacon, text] : kept_) states.push_back({BeaconBook::kOwner, beacon, text});
  log();
  open({}, states);
  dispatch_->advance(4min);
  hear(kFridge, {.emergency = 1});
  hear(kCellar);
  EXPECT_EQ(log(), ". found.") << "one was there all the time, the other lost before";
  dispatch_->advance(450s);
  EXPECT_EQ(log(), "lost lost") << "after their own times";
}

TEST_F(Book, StaysSmallAmongStrangers) {
  settings_->beacons[kFridge] = {};
  open();
  hear(kFridge);
  hear(kCellar);
  const std::size_t kMany = 3 * BeaconBook::kCapacity;
  for (std::size_t i = 0; i < kMany; ++i) {
    hear(BeaconId::sensor(fmt::format("A0-00-00-00-{:02X}-{:02X}", i / 256, i % 256)));
    if (i % 100 == 0) hear(kCellar);
  }
  EXPECT_EQ(kept_.size(), BeaconBook::kCapacity + 1);
  EXPECT_TRUE(book_->find(kFridge)) << "in the settings";
  EXPECT_TRUE(book_->find(kCellar)) << "heard now and then";
  EXPECT_FALSE(book_->find(BeaconId::sensor("A0-00-00-00-00-00")));
  dispatch_->advance(1min);
  EXPECT_EQ(events_, 2 * (kMany + 2)) << "who is forgotten is lost";
}

}  // namespace
}  // namespace brenloft
