#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "application/cpp/brenloft.hpp"
#include "platform/foundation/Hex.h"

using brenloft::Event;
using brenloft::RadioState;
using brenloft::Reading;
using brenloft::Search;
using brenloft::Settings;
using brenloft::Sighting;
using brenloft::SimulatedAir;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

namespace {

const Reading kFridge{.id = "C0-C1-5C-00-00-01",
                      .rssiDbm = -61,
                      .temperatureCelsius = 4.25,
                      .relativeHumidityPercent = 38.7,
                      .batteryPercent = 69,
                      .services = {"FFF0"}};
const Sighting kDoor{.rssiDbm = -70, .uuid = "51C70E2A-9B44-4D1F-8A63-2FD075E81C36", .major = 1, .minor = 2};

// One word an event, so that an order can be read.
std::string wordFor(const Event& event) {
  if (const auto* reading = event.reading())
    return "reading " + (reading->temperatureCelsius ? std::to_string(*reading->temperatureCelsius) : "none");
  if (event.sighting() != nullptr) return "sighting";
  if (event.found() != nullptr) return "found";
  if (const auto* lost = event.lost())
    return lost->lastHeard ? "lost after " + std::to_string((lost->time - *lost->lastHeard) / seconds(1))
                           : "never heard";
  if (const auto* emergency = event.emergency()) return emergency->isOver ? "over" : "emergency";
  if (const auto* radio = event.radio())
    return radio->isListening() ? "on" + radio->reason : "off: " + radio->reason;
  return "missed";
}

std::vector<std::string> wordsOf(Search& search) {
  std::vector<std::string> words;
  for (const Event& event : search) words.push_back(wordFor(event));
  return words;
}

}  // namespace

TEST(ModernSearch, TellsWhatASensorDoesInOrder) {
  const auto air = SimulatedAir::make();
  auto search = Search::start({.lostAfter = seconds(10), .air = air});
  ASSERT_TRUE(search) << search.error().text;
  Reading fridge = kFridge;
  air->send(fridge);
  air->advance(seconds(9));
  fridge.emergency = 1;
  fridge.temperatureCelsius = -0.01;
  air->send(fridge);
  air->advance(seconds(1));
  fridge.emergency = 0;
  air->send(fridge);
  air->advance(seconds(15));
  air->send(fridge);
  EXPECT_THAT(wordsOf(*search), testing::ElementsAre("on", "found", "reading 4.250000", "reading -0.010000",
                                                     "emergency", "reading -0.010000", "over",
                                                     "lost after 10", "found", "reading -0.010000"));
}

TEST(ModernSearch, TakesTheLongestTimesForNever) {
  constexpr auto ever = std::chrono::milliseconds::max();
  const auto air = SimulatedAir::make();
  auto search = Search::start({.lostAfter = ever, .air = air});
  air->send(kFridge);
  for (int i = 0; i < 2; ++i) air->advance(std::chrono::days(36'500));
  EXPECT_THAT(wordsOf(*search), testing::ElementsAre("on", "found", "reading 4.250000"));
  EXPECT_THROW(air->advance(std::chrono::microseconds::max()), std::invalid_argument);
  air->repeat(kFridge, ever);

  auto live = Search::start({.source = "demo?paced"});
  ASSERT_TRUE(live) << live.error().text;
  std::optional<Event> found;
  do found = live->next(ever);
  while (found && found->found() == nullptr);
  ASSERT_TRUE(found) << "it waits";
  const auto reading = live->next(ever);
  ASSERT_TRUE(reading && reading->reading() != nullptr);
  EXPECT_EQ(found->found()->time, reading->reading()->time);
}

TEST(ModernSearch, GivesAReadingAsItWasSent) {
  const auto air = SimulatedAir::make();
  auto search = Search::start({.air = air});
  Reading extreme = kFridge;
  extreme.temperatureCelsius = -327.68;
  extreme.relativeHumidityPercent = 655.35;
  extreme.batteryPercent = 255;
  extreme.acceleration = {-32768, 0, 32767};
  for (const Reading& sent : {kFridge, extreme}) {
    air->advance(seconds(1));
    air->send(sent);
    Reading expected = sent;
    expected.time = air->now();
    std::optional<Event> event;
    do event = search->next();
    while (event && event->reading() == nullptr);
    ASSERT_TRUE(event);
    EXPECT_EQ(*event->reading(), expected);
  }
  Reading none = kFridge;
  none.temperatureCelsius = 327.68;
  EXPECT_THROW(air->send(none), std::invalid_argument);
}

// A frame's zero is a measured one where the same frame has a humidity.
TEST(ModernSearch, TellsZeroDegreesFromNoReadingByTheHumidity) {
  const auto decoded = [](std::string_view hex) { return Reading::decode(*platform::octetsFromHex(hex)); };
  const auto frost = decoded("00008813000064C0C15C000001000000000000000000000000");
  ASSERT_TRUE(frost);
  EXPECT_EQ(frost->temperatureCelsius, 0.0);
  EXPECT_EQ(frost->relativeHumidityPercent, 50.0);
  const auto neither = decoded("00000000000064C0C15C000001000000000000000000000000");
  EXPECT_EQ(neither->temperatureCelsius, std::nullopt);
  EXPECT_EQ(neither->relativeHumidityPercent, std::nullopt);
  EXPECT_FALSE(decoded("0000881300"));
}

// While the radio is off nobody is lost; afterwards each has its whole time to be heard.
TEST(ModernSearch, CountsSilenceOnlyWhileTheRadioListens) {
  const auto air = SimulatedAir::make();
  auto search = Search::start({.lostAfter = seconds(10), .air = air});
  air->send(kFridge);
  air->advance(seconds(5));
  air->setRadio(RadioState::off, "blocked by rfkill");
  air->advance(minutes(10));
  air->setRadio(RadioState::listening);
  air->advance(seconds(9));
  EXPECT_THAT(wordsOf(*search),
              testing::ElementsAre("on", "found", "reading 4.250000", "off: blocked by rfkill", "on"));
  air->advance(seconds(1));
  EXPECT_THAT(wordsOf(*search), testing::ElementsAre("lost after 615"));
}

// Also where only the reason changes: a radio that is on and hears nothing says so.
TEST(ModernSearch, SaysWhyTheRadioHearsNothing) {
  const auto air = SimulatedAir::make();
  air->setRadio(RadioState::notPermitted, "bluetoothd refuses this user");
  auto search = Search::start({.lostAfter = seconds(10), .expected = {kFridge.id}, .air = air});
  air->advance(minutes(1));
  const auto first = search->next();
  ASSERT_TRUE(first && first->radio());
  EXPECT_EQ(first->radio()->state, RadioState::notPermitted);
  air->setRadio(RadioState::off, "switched off");
  air->setRadio(RadioState::off, "blocked by rfkill");
  air->setRadio(RadioState::listening);
  air->advance(seconds(9));
  air->setRadio(RadioState::listening, " and silent");
  air->advance(seconds(1));
  EXPECT_THAT(wordsOf(*search), testing::ElementsAre("off: switched off", "off: blocked by rfkill", "on",
                                                     "on and silent", "never heard"));
  auto late = Search::start({.air = air});
  air->advance({});
  EXPECT_THAT(wordsOf(*late), testing::ElementsAre("on and silent"));
}

TEST(ModernSearch, GivesIdsAsEventsHaveThem) {
  for (const std::string typed : {"c0:c1:5c:00:00:01", "C0-c1-5C-00-00-01", "C0-C1-5C-00-00-01"})
    EXPECT_EQ(brenloft::beaconId(typed), kFridge.id);
  EXPECT_EQ(brenloft::beaconId("51c70e2a-9b44-4d1f-8a63-2fd075e81c36/1/02"), kDoor.uuid + "/1/2");
  for (const std::string typed : {"", "fridge", "C0-C1-5C-00-00", "C0-C1:5C-00-00-01", "C0-C1-5C-00-00-0G",
                                  "51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1/65536"})
    EXPECT_EQ(brenloft::beaconId(typed).error().text, "no beacon has this id: " + typed);
}

TEST(ModernSearch, LosesWhoIsExpectedAndNeverHeard) {
  const auto air = SimulatedAir::make();
  auto search = Search::start({.iBeacons = true,
                               .lostAfter = seconds(10),
                               .expected = {"c0:c1:5c:00:00:01", "C0-C1-5C-00-00-02", "C0-C1-5C-00-00-02",
                                            "51c70e2a-9b44-4d1f-8a63-2fd075e81c36/1/2"},
                               .air = air});
  ASSERT_TRUE(search) << search.error().text;
  air->advance(seconds(9));
  air->send(kFridge);
  air->advance(seconds(1));
  std::vector<std::string> told;
  for (const Event& event : *search) told.push_back(wordFor(event) + ' ' + std::string(event.beacon()));
  EXPECT_THAT(told,
              testing::ElementsAre("on ", "found " + kFridge.id, "reading 4.250000 " + kFridge.id,
                                   "never heard C0-C1-5C-00-00-02", "never heard " + kDoor.uuid + "/1/2"));
  air->send(kDoor);
  air->advance(seconds(9));
  EXPECT_THAT(wordsOf(*search), testing::ElementsAre("found", "sighting", "lost after 10"));
}

TEST(ModernSearch, HearsOnlyWhatIsWanted) {
  const auto air = SimulatedAir::make();
  auto sensors = Search::start({.services = {"FFF0"}, .air = air});
  auto doors = Search::start({.sensors = false, .iBeacons = true, .regions = {{kDoor.uuid, 1}}, .air = air});
  auto both = Search::start({.iBeacons = true, .services = {"A002"}, .air = air});
  Reading other = kFridge;
  other.id = "C0-C1-5C-00-00-02";
  other.services = {"A002"};
  Sighting elsewhere = kDoor;
  elsewhere.major = 9;
  air->send(kFridge);
  air->send(other);
  air->send(kDoor);
  air->send(elsewhere);
  const auto beacons = [](Search& search) {
    std::vector<std::string> ids;
    for (const Event& event : search)
      if (event.found() != nullptr) ids.emplace_back(event.beacon());
    return ids;
  };
  EXPECT_THAT(beacons(*sensors), testing::ElementsAre(kFridge.id));
  EXPECT_THAT(beacons(*doors), testing::ElementsAre(kDoor.uuid + "/1/2"));
  EXPECT_THAT(beacons(*both), testing::ElementsAre(other.id, kDoor.uuid + "/1/2", kDoor.uuid + "/9/2"));
}

TEST(ModernSearch, SaysWhyItCannotStart) {
  const auto errorOf = [](Settings settings) { return Search::start(std::move(settings)).error().text; };
  EXPECT_EQ(errorOf({.source = "captur:x"}), "no such source: captur:x; did you mean capture:x?");
  EXPECT_THAT(errorOf({.source = "capture:/nowhere/x"}), testing::HasSubstr("/nowhere/x"));
  EXPECT_EQ(Search::start({.source = "capture:/nowhere/x"}).error().kind, brenloft::Error::Kind::absent);
  EXPECT_EQ(Search::start({.source = "demo", .record = "/nowhere/x"}).error().kind,
            brenloft::Error::Kind::absent);
  EXPECT_EQ(errorOf({.source = "demo", .services = {"XYZ"}}), "not a service UUID: XYZ");
  EXPECT_EQ(errorOf({.source = "demo", .regions = {{kDoor.uuid}}}),
            "regions are given, and no iBeacons are searched for");
  EXPECT_EQ(errorOf({.source = "demo", .sensors = false}), "neither sensors nor iBeacons are searched for");
  EXPECT_THAT(errorOf({.source = "demo", .record = "/nowhere/x"}), testing::HasSubstr("/nowhere/x"));
  EXPECT_EQ(errorOf({.record = "x", .air = SimulatedAir::make()}), "a simulated air cannot be recorded");
  for (const std::string id : {"fridge", "C0-C1-5C-00-00", "51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1/65536",
                               "51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1"})
    EXPECT_EQ(errorOf({.source = "demo", .expected = {id}}), "no beacon has this id: " + id);
  EXPECT_EQ(errorOf({.source = "demo", .expected = {kDoor.uuid + "/1/2"}}),
            "expected, but its kind is not searched for: " + kDoor.uuid + "/1/2");
}

// The demonstration waits for who pulls, ends, and is heard again from its recording.
TEST(ModernSearch, ThrowsTheReasonWhereThereIsNoSearch) {
  try {
    (void)*Search::start({.source = "captur:x"});
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("no such source: captur:x"));
  }
  int events = 0;
  for ([[maybe_unused]] const Event& event : *Search::start({.source = "demo"})) ++events;
  EXPECT_GT(events, 250);
  auto search = Search::start({.air = SimulatedAir::make()});
  const Search other = *std::move(search);
  EXPECT_THROW((void)search->next(), std::logic_error);  // NOLINT(bugprone-use-after-move): what is tested
}

TEST(ModernSearch, PullsAWholeSourceAndItsRecording) {
  const std::string file = testing::TempDir() + "modern.btsnoop";
  std::vector<Search> ended;
  const auto readingsOf = [&](Settings settings) {
    auto search = Search::start(std::move(settings));
    EXPECT_TRUE(search);
    std::vector<Reading> readings;
    pollfd descriptor{search->fileDescriptor(), POLLIN, 0};
    while (!search->hasEnded()) {
      EXPECT_EQ(::poll(&descriptor, 1, 60'000), 1);
      if (const auto event = search->next(milliseconds(0)); event && event->reading() != nullptr)
        readings.push_back(*event->reading());
    }
    EXPECT_FALSE(search->next());
    ended.push_back(*std::move(search));  // what was recorded can be read before the search goes
    return readings;
  };
  const auto heard = readingsOf({.source = "demo", .record = file});
  EXPECT_GT(heard.size(), 200U);
  EXPECT_EQ(readingsOf({.source = "capture:" + file}), heard);
  std::filesystem::remove(file);
}

TEST(ModernSearch, HandsEventsToHandlersUntilTheEnd) {
  int readings = 0;
  std::atomic<bool> hasEnded = false;
  const auto search = Search::start({.source = "demo"}, {.onReading = [&](const Reading&) { ++readings; },
                                                         .onEnd =
                                                             [&] {
                                                               hasEnded = true;
                                                               hasEnded.notify_all();
                                                             }});
  ASSERT_TRUE(search);
  hasEnded.wait(false);
  EXPECT_GT(readings, 200);
}

// The application's queue runs one block at a time, whenever it likes.
TEST(ModernSearch, HandsEventsToAnExecutorInOrder) {
  std::deque<std::function<void()>> queue;
  std::vector<std::string> ids;
  const auto air = SimulatedAir::make();
  auto search = Search::start({.air = air}, {.onFound = [&](const auto& found) { ids.push_back(found.id); }},
                              [&](auto block) { queue.push_back(std::move(block)); });
  Reading other = kFridge;
  other.id = "C0-C1-5C-00-00-02";
  air->send(kFridge);
  air->send(other);
  EXPECT_THAT(ids, testing::IsEmpty());
  EXPECT_EQ(queue.size(), 1U);
  queue.front()();
  EXPECT_THAT(ids, testing::ElementsAre(kFridge.id, other.id));
}

// The end of the object is the end of its handlers, wherever the source is.
TEST(ModernSearch, EndsWhileItsSourceIsInTheMiddle) {
  { const auto unread = Search::start({.source = "demo"}); }
  {
    std::atomic<int> calls = 0;  // gone when the search is: a later call would show under a sanitizer
    auto search = Search::start({.source = "demo?paced"}, {.onReading = [&](const Reading&) {
                                  ++calls;
                                  calls.notify_all();
                                }});
    calls.wait(0);
    auto moved = *std::move(search);
  }
  const auto air = SimulatedAir::make();
  std::optional<Search> own;
  int readings = 0;
  own.emplace(*Search::start({.air = air}, {.onReading = [&](const Reading&) { ++readings; },
                                            .onFound = [&](const auto&) { own->stop(); }}));
  air->send(kFridge);
  EXPECT_EQ(readings, 0);
}

// Whatever calls the handler: the test's clock, that of a source, the machine's, the application's queue.
TEST(ModernSearch, MayBeDestroyedInItsOwnHandler) {
  struct Owner {
    std::unique_ptr<Search> search{};
    int calls = 0;
    void let() {
      ++calls;
      search.reset();
    }
  } owner;
  const auto air = SimulatedAir::make();
  owner.search = std::make_unique<Search>(*Search::start(
      {.air = air},
      {.onReading = [&](const Reading&) { owner.let(); }, .onFound = [&](const auto&) { owner.let(); }}));
  air->send(kFridge);
  air->advance(seconds(60));
  EXPECT_EQ(owner.calls, 1);

  std::deque<std::function<void()>> queue;
  owner.search =
      std::make_unique<Search>(*Search::start({.air = air}, {.onFound = [&](const auto&) { owner.let(); }},
                                              [&](auto block) { queue.push_back(std::move(block)); }));
  air->send(kFridge);
  queue.front()();
  EXPECT_EQ(owner.calls, 2);

  for (const char* source : {"demo", "demo?paced"}) {
    std::promise<void> isOwned;
    const auto isGone = std::make_shared<std::promise<void>>();
    owner.search = std::make_unique<Search>(*Search::start(
        {.source = source}, {.onFound = [&, isGone, owned = isOwned.get_future().share()](const auto&) {
          owned.wait();
          owner.let();
          isGone->set_value();
        }}));
    isOwned.set_value();
    isGone->get_future().wait();
  }
  EXPECT_EQ(owner.calls, 4);
}

// A handler may begin the next search in the place of its own.
TEST(ModernSearch, MayBeReplacedInItsOwnHandler) {
  const auto air = SimulatedAir::make();
  std::optional<Search> search;
  int found = 0;
  const std::function<void(const brenloft::Found&)> again = [&](const auto&) {
    if (++found < 3) *search = *Search::start({.air = air}, {.onFound = again});
  };
  search = *Search::start({.air = air}, {.onFound = again});
  for (int i = 0; i < 5; ++i) {
    air->send(kFridge);
    air->advance(seconds(1));
  }
  EXPECT_EQ(found, 3);
}
