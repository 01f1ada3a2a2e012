#include <algorithm>
#include <deque>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "gateway/mqtt/Outbox.h"
#include "gateway/mqtt/Session.h"

namespace brenloft {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Kind = BeaconEvent::Kind;

constexpr platform::Date kStart = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21);
constexpr int kUnheard = 0x10;
constexpr int kForbidden = 0x87;
constexpr int kTooLarge = 0x95;
constexpr int kBusy = 0x97;

// A broker in the hands of a test.
class ScriptedBroker final : public MqttClient {
 public:
  struct Published {
    uint64_t token;
    Message message;
  };

  void connect() override { ++connects; }
  void subscribe(const std::string&) override {}
  void publish(uint64_t token, const Message& message) override { underWay.push_back({token, message}); }
  void disconnect() override { ++disconnects; }

  int connects = 0;
  int disconnects = 0;
  std::deque<Published> underWay;  // not acknowledged
};

class MemoryRows final : public Outbox::Rows {
 public:
  HistoryPage rows(int64_t after, bool hasReadings, std::size_t limit) override {
    HistoryPage page{.through = lastSeq(), .isLast = true};
    for (const HistoryRow& row : all) {
      if (row.seq <= after || (!hasReadings && std::holds_alternative<Reading>(row.record))) continue;
      if (page.rows.size() == limit) {
        page.through = page.rows.back().seq;
        page.isLast = false;
        break;
      }
      page.rows.push_back(row);
    }
    return page;
  }
  int64_t lastSeq() override { return all.empty() ? 0 : all.back().seq; }

  std::vector<HistoryRow> all;
};

class PublishingTest : public testing::Test {
 protected:
  static BeaconId beacon(int number) { return BeaconId::sensor("C0-C1-5C-00-00-0" + std::to_string(number)); }

  // What is between the history and the broker, as one run of a publisher has it.
  struct Process {
    Process(PublishingTest& test, const Cursor& cursor)
        : payloads(Topics("gw"), [](const BeaconId&) { return Label{}; }),
          view(payloads, test.settings_, true),
          outbox(payloads, view, test.rows_, cursor, test.options_,
                 {.date = [&test] { return kStart + std::chrono::duration_cast<milliseconds>(test.now_); },
                  .clock = [] { return ClockState{}; },
                  .onLine = [&test](const std::string& line) { test.lines_.push_back(line); }}),
          session({.client = test.broker_,
                   .supply = outbox,
                   .chance = [] { return 0.5; },
                   .onLine = [&test](const std::string& line) { test.lines_.push_back(line); }}) {}

    Payloads payloads;
    View view;
    Outbox outbox;
    Session session;
  };

  void begin(const Cursor& cursor = {.store = "S"}) {
    process_ = std::make_unique<Process>(*this, cursor);
    process_->session.start(now_);
  }
  void handle(const MqttClient::Event& event) { process_->session.handle(now_, event); }
  void greet(uint16_t mostUnderWay = 20, uint32_t largest = UINT32_MAX) {
    handle(MqttClient::Connected{});
    handle(MqttClient::Greeted{mostUnderWay, largest});
  }
  // A lost connection loses what it had under way.
  void lose(bool isRefusal = false) {
    broker_.underWay.clear();
    handle(MqttClient::Lost{"gone", isRefusal});
  }
  void wait(Instant time) {
    now_ += time;
    process_->session.advance(now_);
  }

  void addReading(int number, int32_t temperature = 2100) {
    Reading reading{.beacon = beacon(number), .heard = date(), .rssi = -60};
    reading.raw.temperature = reading.shown.temperature = temperature;
    add(reading);
  }
  void addEvent(int number, Kind kind) { add(BeaconEvent{beacon(number), date(), kind}); }
  void add(Record record) {
    rows_.all.push_back({rows_.lastSeq() + 1, std::move(record)});
    if (!process_) return;
    process_->view.take(rows_.all.back());
    process_->outbox.wake();
    process_->session.advance(now_);
  }
  platform::Date date() const { return kStart + std::chrono::duration_cast<milliseconds>(now_); }

  // Takes the message at this place, and learns its rows.
  void acknowledge(std::size_t place = 0, int reason = 0) {
    const auto published = broker_.underWay[place];
    broker_.underWay.erase(broker_.underWay.begin() + static_cast<std::ptrdiff_t>(place));
    if (reason == 0) take(published.message);
    handle(MqttClient::Acknowledged{published.token, reason});
  }
  void take(const Message& message) {
    taken_.push_back(message);
    rapidjson::Document json;
    if (json.Parse(message.payload).HasParseError()) return;
    if (message.topic == "brenloft/gw/event") events_.push_back(json["seq"].GetInt64());
    if (message.topic != "brenloft/gw/batch") return;
    for (const auto& record : json["records"].GetArray())
      if (record.HasMember("seq"))
        batched_.insert(record["seq"].GetInt64());
      else
        gaps_.push_back({record["first"].GetInt64(), record["last"].GetInt64(), record["count"].GetUint64()});
  }
  void acknowledgeAll() {
    while (!broker_.underWay.empty()) acknowledge();
  }
  std::size_t countUnderWay(std::string_view topicEnd) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        broker_.underWay, [&](const auto& one) { return one.message.topic.ends_with(topicEnd); }));
  }
  std::size_t count(std::string_view topicEnd) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(taken_, [&](const Message& one) { return one.topic.ends_with(topicEnd); }));
  }
  Cursor cursor() const { return process_->outbox.cursor(); }

  Instant now_{};
  ScriptedBroker broker_;
  MemoryRows rows_;
  std::shared_ptr<const Settings> settings_ = std::make_shared<Settings>();
  Outbox::Options options_{.mostPerSecond = 1'000'000};
  std::vector<std::string> lines_;
  std::vector<Message> taken_;
  std::vector<int64_t> events_;
  std::set<int64_t> batched_;
  std::vector<Gap> gaps_;
  std::unique_ptr<Process> process_;
};

TEST_F(PublishingTest, NothingIsSentBeforeTheGreetingNorMoreThanTheBrokerTakes) {
  for (int i = 0; i < 1'000; ++i) addReading(i % 9);
  begin();
  handle(MqttClient::Connected{});
  EXPECT_TRUE(broker_.underWay.empty());
  handle(MqttClient::Greeted{1});
  // One at a time: what is so now and what waited take turns.
  for (int i = 0; i < 9; ++i) addReading(i);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(broker_.underWay.size(), 1U);
    acknowledge();
  }
  EXPECT_GE(count("/state"), 5U);
  EXPECT_GE(count("/batch"), 5U);
}

TEST_F(PublishingTest, CursorMovesOverTheUnbrokenRunOfWhatWasTaken) {
  for (int i = 0; i < 300; ++i) addReading(1);
  begin();
  greet();
  acknowledge();  // status
  acknowledge();  // info
  ASSERT_EQ(countUnderWay("/batch"), 3U);
  const uint64_t last = broker_.underWay[2].token;
  acknowledge(2);
  EXPECT_EQ(cursor().batches, 0);
  handle(MqttClient::Acknowledged{last, 0});  // twice
  acknowledge(0);
  EXPECT_EQ(cursor().batches, 100);
  acknowledge(0);
  EXPECT_EQ(cursor().batches, 300);
}

// Random brokers, connections and deaths of the process: at the end everything was taken, and nothing else.
TEST_F(PublishingTest, EveryRowIsTakenWhateverHappens) {
  std::mt19937 random(1);
  for (int round = 0; round < 30; ++round) {
    rows_.all.clear();
    batched_.clear();
    events_.clear();
    begin();
    for (int step = 0; step < 400; ++step) {
      const auto dice = random() % 20;
      if (dice < 8)
        addReading(static_cast<int>(random() % 5));
      else if (dice == 8)
        addEvent(1, random() % 2 == 0 ? Kind::emergency : Kind::lost);
      else if (dice == 9)
        lose(random() % 2 == 0);
      else if (dice == 10)
        begin(cursor());  // killed and started again
      else if (dice == 11)
        wait(seconds(random() % 70));
      else if (process_->session.state() != Session::State::sending)
        greet(static_cast<uint16_t>(1 + random() % 30), 2'000);
      else if (!broker_.underWay.empty())
        acknowledge(random() % broker_.underWay.size(), dice == 12 ? kForbidden : dice == 13 ? kBusy : 0);
      if (process_->session.state() != Session::State::sending) broker_.underWay.clear();
    }
    for (int i = 0; i < 20; ++i) {
      if (process_->session.state() != Session::State::sending) greet();
      acknowledgeAll();
      wait(seconds(61));
    }
    std::set<int64_t> expected;
    std::set<int64_t> expectedEvents;
    for (const HistoryRow& row : rows_.all) {
      expected.insert(row.seq);
      if (std::holds_alternative<BeaconEvent>(row.record)) expectedEvents.insert(row.seq);
    }
    ASSERT_EQ(batched_, expected) << round;
    ASSERT_EQ(std::set(events_.begin(), events_.end()), expectedEvents) << round;
    ASSERT_EQ(cursor(), (Cursor{"S", rows_.lastSeq(), rows_.lastSeq(), rows_.lastSeq()}));
  }
}

TEST_F(PublishingTest, EmergenciesOvertakeTheBacklogWhichKeepsToItsRate) {
  options_.mostPerSecond = 100;
  for (int i = 0; i < 5'000; ++i) addReading(1);
  addEvent(2, Kind::lost);
  addEvent(1, Kind::emergency);
  begin();
  greet();
  ASSERT_EQ(broker_.underWay[2].message.topic, "brenloft/gw/event");
  EXPECT_NE(broker_.underWay[2].message.payload.find(R"("historical":true)"), std::string::npos);
  acknowledgeAll();
  EXPECT_EQ(events_, (std::vector<int64_t>{5'002, 5'001}));
  for (int i = 0; i < 10; ++i) {
    wait(seconds(1));
    acknowledgeAll();
  }
  EXPECT_EQ(batched_.size(), 1'200U);
}

TEST_F(PublishingTest, LongBacklogLosesItsOldestReadingsAndSaysHowMany) {
  options_.mostBacklog = 200;
  for (int i = 0; i < 999; ++i) addReading(1);
  addEvent(1, Kind::lost);
  for (int i = 0; i < 4'000; ++i) addReading(1);
  begin();
  greet();
  acknowledgeAll();
  ASSERT_EQ(gaps_.size(), 1U);
  EXPECT_EQ(gaps_[0].count, 4'799U);
  EXPECT_EQ(gaps_[0].first, 1);
  EXPECT_EQ(batched_.size(), 201U);
  EXPECT_TRUE(batched_.contains(1'000));
  EXPECT_EQ(*batched_.rbegin(), 5'000);
  EXPECT_EQ(process_->outbox.info().dropped, 4'799U);
}

TEST_F(PublishingTest, PauseGrowsAndIsForgottenAfterAConnectionThatLasted) {
  begin();
  std::vector<int64_t> pauses;
  const auto lostAndTriedAgain = [&] {
    lose();
    const Instant pause = *process_->session.due() - now_;
    pauses.push_back(std::chrono::duration_cast<milliseconds>(pause).count());
    wait(pause - milliseconds(1));
    EXPECT_EQ(process_->session.state(), Session::State::waiting);
    wait(milliseconds(1));
    EXPECT_EQ(process_->session.state(), Session::State::connecting);
  };
  for (int i = 0; i < 7; ++i) lostAndTriedAgain();
  // One that is thrown out at once is none that lasted.
  greet();
  lostAndTriedAgain();
  greet();
  wait(Session::kLasting);
  lostAndTriedAgain();
  EXPECT_EQ(pauses,
            (std::vector<int64_t>{1'500, 3'000, 6'000, 12'000, 24'000, 45'000, 45'000, 45'000, 1'500}));
  EXPECT_EQ(lines_.size(), 5U) << "one per change";
}

TEST_F(PublishingTest, BrokerThatSaysOrTakesNothingIsLeft) {
  begin();
  handle(MqttClient::Connected{});
  wait(Session::kPatience);
  EXPECT_EQ(lines_.back().substr(0, 23), "the broker says nothing");
  wait(seconds(2));
  greet();
  wait(Session::kPatience);
  EXPECT_EQ(lines_.back().substr(0, 24), "the broker takes nothing");
  EXPECT_EQ(broker_.disconnects, 2);
}

TEST_F(PublishingTest, WhatTheAccessListForbidsIsKeptAndTheRestGoesOn) {
  for (int i = 0; i < 50; ++i) addReading(1);
  begin();
  greet();
  acknowledgeAll();
  addReading(1);
  wait(seconds(2));
  const auto refuseBatches = [&] {
    for (std::size_t i = 0; i < broker_.underWay.size();) {
      const bool isBatch = broker_.underWay[i].message.topic == "brenloft/gw/batch";
      acknowledge(i, isBatch ? kForbidden : 0);
    }
  };
  refuseBatches();
  for (int i = 0; i < 30; ++i) {
    addReading(1);
    wait(seconds(1));
    EXPECT_EQ(countUnderWay("/batch"), 0U);
    EXPECT_EQ(countUnderWay("/state"), 1U);
    acknowledgeAll();
  }
  wait(seconds(40));
  wait(seconds(1));
  EXPECT_EQ(countUnderWay("/batch"), 1U);
  refuseBatches();
  wait(seconds(61));
  wait(seconds(1));
  acknowledgeAll();
  EXPECT_EQ(batched_.size(), 81U);
  EXPECT_EQ(lines_,
            (std::vector<std::string>{
                "connected", "the broker's access list refuses batches; they are kept and tried again",
                "the broker takes batches again"}));
}

TEST_F(PublishingTest, BrokerWithoutRoomIsGivenEverythingLater) {
  begin();
  for (int i = 0; i < 150; ++i) addReading(1);
  addEvent(1, Kind::emergency);
  greet();
  for (int round = 0; round < 4; ++round) {
    const auto tokens = broker_.underWay;
    broker_.underWay.clear();
    for (const auto& one : tokens) handle(MqttClient::Acknowledged{one.token, kBusy});
    EXPECT_TRUE(broker_.underWay.empty()) << "not at once";
    wait(seconds(6));
  }
  EXPECT_EQ(lines_.size(), 5U) << "connected, and one for each kind of message";
  acknowledgeAll();
  EXPECT_EQ(count("/status"), 1U);
  EXPECT_EQ(count("-01/state"), 1U);
  EXPECT_EQ(events_, std::vector<int64_t>{151});
  EXPECT_EQ(batched_.size(), 151U);
  EXPECT_EQ(lines_.back(), "the broker takes batches again");
}

TEST_F(PublishingTest, BatchesWaitForACollectorWhereTheyAreTo) {
  for (const bool isToWait : {false, true}) {
    options_.batches = isToWait ? Outbox::Batches::collected : Outbox::Batches::on;
    rows_.all.clear();
    process_.reset();
    for (int i = 0; i < 50; ++i) addReading(1);
    addEvent(1, Kind::lost);
    begin();
    greet();
    while (!broker_.underWay.empty()) acknowledge(0, kUnheard);
    EXPECT_EQ(cursor().calm, 51);
    EXPECT_EQ(cursor().batches, isToWait ? 0 : 51);
  }
  EXPECT_EQ(lines_.back(), "nobody collects batches now; they are kept and tried again");
  wait(Outbox::kBusyPause);
  acknowledgeAll();
  EXPECT_EQ(cursor().batches, 51);
  EXPECT_EQ(batched_.size(), 51U);
}

TEST_F(PublishingTest, WhatIsTooLargeIsSplitAndWhatIsWrongIsCountedAndPassed) {
  for (int i = 0; i < 100; ++i) addReading(1);
  begin();
  greet(20, 4'000);
  for (const auto& one : broker_.underWay) EXPECT_LE(one.message.payload.size(), 4'000U);
  acknowledge();
  acknowledge();
  acknowledge(0, kTooLarge);
  acknowledgeAll();
  EXPECT_EQ(process_->outbox.info().rejected, 1U);
  EXPECT_EQ(cursor().batches, 100);
  EXPECT_LT(batched_.size(), 100U);
}

TEST_F(PublishingTest, OnlyTheNewestFreshReadingIsToldAndAllOfNowToANewBroker) {
  begin();
  addEvent(1, Kind::found);
  for (int i = 0; i < 50; ++i) addReading(1, i);
  addReading(2, 1);
  wait(seconds(45));
  addReading(1, 50);
  greet();
  acknowledgeAll();
  EXPECT_EQ(count("/presence"), 1U);
  ASSERT_EQ(count("/state"), 2U);
  const auto state = std::ranges::find(taken_, "brenloft/gw/beacon/C0-C1-5C-00-00-02/state", &Message::topic);
  EXPECT_EQ(state->expiry, seconds(15));
  EXPECT_TRUE(state->isRetained);
  lose();
  taken_.clear();
  wait(seconds(50));
  greet();
  acknowledgeAll();
  // The second one's reading is stale by now, and stays untold.
  EXPECT_EQ(count("/presence"), 1U);
  EXPECT_EQ(count("-02/state"), 0U);
  EXPECT_EQ(count("-01/state"), 1U);
}

}  // namespace
}  // namespace brenloft
