#include <algorithm>
#include <csignal>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <sys/resource.h>

#include "tests/gateway/HistoryFixture.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;

// Everything of a record that a history keeps, to be compared.
std::string textOfRecord(const Record& record) {
  const auto number = [](const std::optional<int32_t>& value) {
    return value ? std::to_string(*value) + ' ' : std::string("- ");
  };
  const auto quantities = [&](const Quantities& q) {
    return number(q.temperature) + number(q.humidity) + number(q.battery) + number(q.emergency) +
           number(q.txPower) + number(q.xAccel) + number(q.yAccel) + number(q.zAccel);
  };
  const BeaconId* beacon = beaconOf(record);
  std::string text = std::to_string(heardAt(record).time_since_epoch().count()) + ' ' +
                     (beacon ? beacon->text() : "gateway") + ' ';
  if (const auto* reading = std::get_if<Reading>(&record))
    return text + number(reading->rssi) + quantities(reading->raw) + quantities(reading->shown);
  const auto& event = std::get<BeaconEvent>(record);
  return text + std::string(textOf(event.kind)) + ' ' + event.text + ' ' + std::to_string(event.count);
}

// Twenty beacons, some with offsets, values absent now and then, a clock that jumps.
class RandomRecords {
 public:
  Record next() {
    now_ += std::chrono::microseconds(pick(0, 900'000));
    if (pick(0, 3000) == 0) now_ += std::chrono::hours(pick(0, 1) == 0 ? 1 : -1);
    const int number = pick(0, 9);
    if (pick(0, 200) == 0)
      return BeaconEvent{.beacon = number == 0 ? std::nullopt : std::optional(beacon(number)),
                         .heard = now_,
                         .kind = static_cast<BeaconEvent::Kind>(pick(1, 8)),
                         .text = number % 2 == 0 ? "text" : "",
                         .count = static_cast<uint64_t>(number)};
    Reading reading{.beacon = beacon(number), .heard = now_, .rssi = value(-100, 0)};
    if (reading.beacon.kind() == BeaconId::Kind::iBeacon) return reading;
    reading.raw = {value(-32768, 32767), value(0, 10'000),     value(80, 90),        value(0, 1),
                   value(0, 255),        value(-32768, 32767), value(-32768, 32767), value(-32768, 32767)};
    reading.shown = reading.raw;
    if (number == 2 && reading.raw.temperature) *reading.shown.temperature -= 40;
    if (number == 4 && reading.raw.humidity) *reading.shown.humidity += 150;
    return reading;
  }
  static BeaconId beacon(int number) {
    if (number % 4 == 3)
      return BeaconId::iBeacon("51C70E2A-9B44-4D1F-8A63-2FD075E81C36", 1, static_cast<uint16_t>(number));
    return BeaconId::sensor("C0-C1-5C-00-00-0" + std::to_string(number));
  }

 private:
  int pick(int least, int most) { return std::uniform_int_distribution(least, most)(random_); }
  std::optional<int32_t> value(int least, int most) {
    return pick(0, 50) == 0 ? std::nullopt : std::optional<int32_t>(pick(least, most));
  }

  std::mt19937 random_{1};
  platform::Date now_ = kNow;
};

class HistoryOfRandomRecords : public HistoryTest {
 protected:
  // In several lives, the last of which goes on.
  void SetUp() override {
    RandomRecords random;
    for (const int count : {10'000, 1, 7000, 8000}) {
      writer_ = nullptr;
      writer_ = openWriter();
      for (int i = 0; i < count; ++i) {
        records_.push_back(random.next());
        writer_->accept(records_.back());
        if (i % 1000 == 0) dispatch_->advance(1s);
      }
    }
    writer_->flush();
    reader_ = openReader();
  }

  void expectRows(const HistoryFilter& filter, const std::function<bool(const Record&)>& isWanted) {
    const auto rows = allRows(*reader_, filter);
    std::size_t next = 0;
    for (std::size_t i = 0; i < records_.size(); ++i) {
      if (!isWanted(records_[i])) continue;
      ASSERT_LT(next, rows.size());
      ASSERT_EQ(rows[next].seq, static_cast<int64_t>(i + 1));
      ASSERT_EQ(textOfRecord(rows[next].record), textOfRecord(records_[i]));
      ++next;
    }
    EXPECT_EQ(next, rows.size());
  }

  std::vector<Record> records_;
  std::unique_ptr<HistoryWriter> writer_;
  std::unique_ptr<HistoryReader> reader_;
};

TEST_F(HistoryOfRandomRecords, GivesBackEveryRecordThatAFilterWants) {
  EXPECT_EQ(*reader_->count(), records_.size());
  EXPECT_EQ(*reader_->lastSeq(), static_cast<int64_t>(records_.size()));
  expectRows({}, [](const Record&) { return true; });
  const HistorySpan hour{kNow + 1h, kNow + 2h};
  expectRows({.span = hour}, [&](const Record& record) { return hour.contains(heardAt(record)); });
  const BeaconId one = RandomRecords::beacon(7);
  expectRows({.beacons = {one}, .span = hour}, [&](const Record& record) {
    return hour.contains(heardAt(record)) && beaconOf(record) && *beaconOf(record) == one;
  });
  expectRows({.hasReadings = false}, [](const Record& record) { return record.index() == 1; });
}

TEST_F(HistoryOfRandomRecords, KnowsTheNewestReadingOfEachBeacon) {
  std::map<BeaconId, std::string> newest;
  for (const Record& record : records_)
    if (const auto* reading = std::get_if<Reading>(&record)) newest[reading->beacon] = textOfRecord(record);
  const auto latest = *reader_->latest();
  ASSERT_EQ(latest.size(), newest.size());
  for (const HistoryBeacon& beacon : latest) {
    ASSERT_TRUE(beacon.latest);
    EXPECT_EQ(textOfRecord(beacon.latest->record), newest.at(beacon.beacon));
  }
}

TEST_F(HistoryOfRandomRecords, KnowsWhatWasInForceAtAnInstant) {
  // By the time of hearing: the clock jumps back now and then.
  const auto byHand = [&](platform::Date at) {
    std::map<BeaconId, const Reading*> newest;
    for (const Record& record : records_)
      if (const auto* reading = std::get_if<Reading>(&record); reading && reading->heard <= at) {
        const Reading*& known = newest[reading->beacon];
        if (known == nullptr || known->heard < reading->heard) known = reading;
      }
    return newest;
  };
  const auto& early = std::get<Reading>(*std::ranges::find_if(
      records_, [](const Record& record) { return std::holds_alternative<Reading>(record); }));
  for (const platform::Date at :
       {early.heard - 1us, early.heard, kNow + 20min, kNow + 2h, platform::Date::max()}) {
    const auto expected = byHand(at);
    const auto latest = *reader_->latestAt({}, at);
    ASSERT_EQ(latest.size(), expected.size());
    for (const HistoryBeacon& one : latest)
      EXPECT_EQ(textOfRecord(one.latest->record), textOfRecord(*expected.at(one.beacon)));
  }
  const BeaconId one = RandomRecords::beacon(7);
  const auto chosen = *reader_->latestAt({one, BeaconId::sensor("never heard")}, kNow + 1h);
  ASSERT_EQ(chosen.size(), 1U);
  EXPECT_EQ(textOfRecord(chosen[0].latest->record), textOfRecord(*byHand(kNow + 1h).at(one)));
}

using Folded = std::map<int64_t, std::tuple<uint64_t, int32_t, int32_t, double>>;

Folded foldedByHand(const std::vector<Record>& records, const BeaconId& beacon,
                    std::optional<int32_t> Quantities::*quantity, HistorySpan span, int64_t width) {
  std::map<int64_t, std::vector<int32_t>> values;
  for (const Record& record : records) {
    const auto* reading = std::get_if<Reading>(&record);
    if (!reading || reading->beacon != beacon || !span.contains(reading->heard)) continue;
    const auto second = std::chrono::floor<std::chrono::seconds>(reading->heard).time_since_epoch().count();
    if (const auto value = reading->shown.*quantity) values[second / width * width].push_back(*value);
  }
  Folded folded;
  for (const auto& [start, all] : values) {
    double sum = 0;
    for (const int32_t value : all) sum += value;
    folded[start] = {all.size(), std::ranges::min(all), std::ranges::max(all),
                     sum / static_cast<double>(all.size())};
  }
  return folded;
}

TEST_F(HistoryOfRandomRecords, FoldsAQuantityAsIfByHand) {
  struct Case {
    int beacon;
    Quantity quantity;
    std::optional<int32_t> Quantities::*member;
  };
  for (const Case& one :
       {Case{2, Quantity::temperature, &Quantities::temperature},
        Case{4, Quantity::humidity, &Quantities::humidity}, Case{1, Quantity::battery, &Quantities::battery},
        Case{1, Quantity::emergency, &Quantities::emergency},
        Case{5, Quantity::txPower, &Quantities::txPower}, Case{6, Quantity::zAccel, &Quantities::zAccel}}) {
    for (const HistorySpan span : {HistorySpan{}, HistorySpan{kNow + 17min, kNow + 93min}}) {
      const BeaconId beacon = RandomRecords::beacon(one.beacon);
      Folded folded;
      const auto points = *reader_->pieces(beacon, one.quantity, span, 300s);
      for (const HistoryPoint& point : points)
        folded[std::chrono::floor<std::chrono::seconds>(point.start).time_since_epoch().count()] = {
            point.count, point.minimum, point.maximum, point.mean};
      EXPECT_EQ(folded, foldedByHand(records_, beacon, one.member, span, 300));
    }
  }
  EXPECT_LE(reader_->series(RandomRecords::beacon(2), Quantity::rssi, {kNow, kNow + 2h}, 50)->size(), 50U);
}

TEST_F(HistoryTest, BatchesWhatIsRoutineAndCommitsWhatIsNotAtOnce) {
  auto writer = openWriter();
  auto reader = openReader();
  writer->accept(reading(1, kNow, 2000));
  dispatch_->advance(199ms);
  EXPECT_EQ(*reader->count(), 0U);
  dispatch_->advance(1ms);
  EXPECT_EQ(*reader->count(), 1U) << "after a pause it waits for what is heard with it";
  writer->accept(reading(1, kNow, 2000));
  dispatch_->advance(849ms);
  EXPECT_EQ(*reader->count(), 1U);
  dispatch_->advance(1ms);
  EXPECT_EQ(*reader->count(), 2U) << "and so long from commit to commit";
  writer->accept(reading(1, kNow, 2000));
  writer->accept(BeaconEvent{.beacon = beacon(1), .heard = kNow, .kind = BeaconEvent::Kind::lost});
  dispatch_->runDue();
  EXPECT_EQ(*reader->count(), 4U) << "with what waits before it";
  auto emergency = reading(1, kNow, 2000);
  emergency.raw.emergency = emergency.shown.emergency = 1;
  writer->accept(emergency);
  dispatch_->runDue();
  EXPECT_EQ(*reader->count(), 5U);
  auto strange = reading(1, kNow, 32160);
  strange.verdict = Verdict::temperature;
  writer->accept(strange);
  writer->flush();
  EXPECT_EQ(writer->counts(), (HistoryWriter::Counts{.written = 5, .implausible = 1}));
}

TEST_F(HistoryTest, CommitsNoMoreOftenAfterEmergencies) {
  auto writer = openWriter();
  auto reader = openReader();
  auto emergency = reading(1, kNow, 2000);
  emergency.raw.emergency = emergency.shown.emergency = 1;
  for (int i = 0; i < 10; ++i) {
    writer->accept(emergency);
    dispatch_->advance(70ms);
    writer->accept(reading(2, kNow, 2000));
  }
  int commits = 0;
  uint64_t seen = *reader->count();
  for (int i = 0; i < 60; ++i) {
    writer->accept(reading(2, kNow, 2000));
    dispatch_->advance(50ms);
    if (const uint64_t now = *reader->count(); std::exchange(seen, now) != now) ++commits;
  }
  EXPECT_LE(commits, 4) << "in three seconds";
}

TEST_F(HistoryTest, KeepsStatesWithTheirEventsAndForgetsThem) {
  auto writer = openWriter();
  const AlarmFacts facts{AlarmSeverity::critical, AlarmQuantity::dewPoint, -25, {}, "Look"};
  const BeaconEvent raised{
      .beacon = beacon(1), .heard = kNow, .kind = BeaconEvent::Kind::alarmRaised, .alarm = facts};
  writer->accept(raised, {"too warm", beacon(1).text(), "raised 1"});
  writer->keep({"silent", beacon(2).text(), "pending"});
  writer->keep({"gone", beacon(2).text(), "pending"});
  writer->accept(raised, {"too warm", beacon(1).text(), "raised 2"});
  writer->keep({"gone", beacon(2).text()});
  writer = nullptr;
  const std::vector<KeptState> kept{{"silent", beacon(2).text(), "pending"},
                                    {"too warm", beacon(1).text(), "raised 2"}};
  EXPECT_EQ(*openReader()->states(), kept);
  EXPECT_EQ(std::get<BeaconEvent>(allRows(*openReader())[0].record).alarm, facts);
}

TEST_F(HistoryTest, CountsInAGapWhatItHadToDrop) {
  auto writer = openWriter();
  constexpr int most = 65'536;
  for (int i = 0; i < most + 10; ++i) writer->accept(reading(1, kNow + std::chrono::seconds(i), 2000));
  writer->accept(BeaconEvent{.beacon = beacon(1), .heard = kNow, .kind = BeaconEvent::Kind::lost});
  dispatch_->runDue();
  const auto rows = allRows(*openReader(), {.hasReadings = false});
  ASSERT_EQ(rows.size(), 2U) << "an event has room when a reading has none";
  const auto& gap = std::get<BeaconEvent>(rows[1].record);
  EXPECT_EQ(gap.kind, BeaconEvent::Kind::gap);
  EXPECT_EQ(gap.count, 10U);
  EXPECT_EQ(gap.heard, kNow + std::chrono::seconds(most));
}

// What a file's size limit does is what a full disk does, without a disk of its own.
void limitFiles(rlim_t octets) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  limit.rlim_cur = std::min(octets, limit.rlim_max);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(HistoryTest, StopsOnAFullDiskAndGoesOnWhenThereIsRoom) {
  std::signal(SIGXFSZ, SIG_IGN);
  auto writer = openWriter();
  auto reader = openReader();
  const auto hear = [&](int count) {
    for (int i = 0; i < count; ++i) writer->accept(reading(1, kNow, i));
    dispatch_->advance(10s);
  };
  hear(100);
  limitFiles(std::filesystem::file_size(file_.string() + "-wal"));
  for (int turn = 0; turn < 3; ++turn) hear(1000);
  EXPECT_EQ(*reader->count(), 100U);
  ASSERT_EQ(states_.size(), 1U) << "told once";
  EXPECT_FALSE(states_[0].isWorking);
  EXPECT_NE(states_[0].reason, "");
  EXPECT_EQ(writer->counts(), (HistoryWriter::Counts{.written = 100, .waiting = 3000}));
  limitFiles(RLIM_INFINITY);
  hear(1);
  EXPECT_EQ(*openReader()->count(), 3101U);
  ASSERT_EQ(states_.size(), 2U);
  EXPECT_EQ(states_[1], Sink::State{});
  int32_t expected = 0;
  for (const auto& row : allRows(*openReader(), {}, 100)) {
    EXPECT_EQ(std::get<Reading>(row.record).raw.temperature, expected % 1000);
    ++expected;
  }
}

TEST_F(HistoryTest, PrunesByAgeAndBySizeAndNeverGivesANumberAgain) {
  constexpr int rows = 40'000;
  auto writer = openWriter();
  for (int i = 0; i < rows; ++i) {
    // A clock that was wrong for a while is no reason to delete or to keep what it marked.
    const auto wrong = i / 1000 == 3 ? std::chrono::days(4000) : std::chrono::days(0);
    writer->accept(reading(i % 3, kNow + std::chrono::seconds(i) + wrong, i % 1000));
    if (i % 1000 == 0) dispatch_->runDue();
  }
  writer = nullptr;
  const auto size = std::filesystem::file_size(file_);
  dispatch_->setDate(kNow + std::chrono::seconds(rows));
  dispatch_->advance(10min);
  writer = openWriter({.keep = 20'000s});
  dispatch_->advance(1s);
  auto reader = openReader();
  const auto left = *reader->count();
  EXPECT_LE(left, 20'000U);
  EXPECT_GT(left, 20'000U - 600 - 2 * 8192) << "a part of a round may stay, nothing else may go";
  EXPECT_EQ(*reader->lastSeq(), rows);
  EXPECT_LT(std::filesystem::file_size(file_), size * 9 / 10) << "the space is given back";
  uint64_t folded = 0;
  for (int number = 0; number < 3; ++number) {
    const auto points = *reader->pieces(beacon(number), Quantity::temperature, {}, 3600s);
    for (const HistoryPoint& point : points) folded += point.count;
  }
  EXPECT_EQ(folded, left);
  EXPECT_EQ(allRows(*reader).front().seq, static_cast<int64_t>(rows - left + 1));

  writer = nullptr;
  dispatch_->setDate(kNow + std::chrono::days(10));
  writer = openWriter({.keep = 20'000s});
  dispatch_->advance(1s);
  EXPECT_EQ(*reader->count(), 0U);
  writer->accept(reading(1, kNow + std::chrono::days(10), 1));
  writer->flush();
  EXPECT_EQ(allRows(*reader).front().seq, rows + 1);
  EXPECT_EQ(reader->latest()->size(), 1U);
  dispatch_->advance(7h);
  EXPECT_EQ(*reader->count(), 0U) << "rows grow old where none are written, too";
}

TEST_F(HistoryTest, RefusesWhatIsNoHistoryOfItsOwnInOneLine) {
  openWriter()->accept(reading(1, kNow, 2000));
  const std::string whole = test::contentsOf(file_);
  {
    const auto writer = openWriter();
    EXPECT_EQ(openProblem(), "process " + std::to_string(::getpid()) + " writes it");
  }
  std::string newer = whole;
  newer[63] = 2;
  test::writeFile(file_, newer);
  EXPECT_EQ(openProblem(), "a history of version 2, made by a newer program; this one knows 1");
  std::string other = whole;
  other[71] = 'X';
  test::writeFile(file_, other);
  EXPECT_EQ(openProblem(), "another application's database");
  test::writeFile(
      file_, "no database at all, but long enough to have a header of a hundred octets, or more than that");
  EXPECT_EQ(openProblem(), "not a database");
  for (const char* beside : {"-wal", "-shm"}) std::filesystem::remove(file_.string() + beside);
  test::writeFile(file_, whole.substr(0, whole.size() / 2));
  EXPECT_EQ(openProblem(), "database disk image is malformed");
}

TEST_F(HistoryTest, ThinsByIntervalAndDeadband) {
  using Temperatures = std::vector<int32_t>;
  struct Case {
    HistoryOptions options;
    std::vector<std::pair<int, int32_t>> heard;  // seconds and temperatures
    Temperatures kept;
  };
  const HistoryDeadband half{.temperature = 50};
  const std::vector<std::pair<int, int32_t>> heard{{0, 0},   {30, 10}, {59, 20},    {60, 30},    {61, 90},
                                                   {70, 41}, {80, 40}, {-3000, 60}, {-2999, 61}, {601, 62}};
  for (const Case& one :
       {Case{{}, heard, {0, 10, 20, 30, 90, 41, 40, 60, 61, 62}},
        Case{{.interval = 60s}, heard, {0, 30, 60, 62}}, Case{{.deadband = half}, heard, {0, 90, 40, 60, 62}},
        Case{{.interval = 60s, .deadband = half}, heard, {0, 30, 90, 40, 60, 62}}}) {
    std::filesystem::remove(file_);
    auto writer = openWriter(one.options);
    for (const auto& [second, temperature] : one.heard)
      writer->accept(reading(1, kNow + std::chrono::seconds(second), temperature));
    writer->flush();
    Temperatures kept;
    for (const auto& row : allRows(*openReader()))
      kept.push_back(*std::get<Reading>(row.record).shown.temperature);
    EXPECT_EQ(kept, one.kept);
    EXPECT_EQ(writer->counts().thinned, one.heard.size() - one.kept.size());
  }
}

TEST(HistoryOptionsTest, ReadsDeadbandsAndSizes) {
  const HistoryDeadband two{.temperature = 20, .humidity = 100};
  EXPECT_EQ(historyDeadbandFromText("temperature=0.2,humidity=1"), two);
  EXPECT_EQ(historyDeadbandFromText("accel=16"), HistoryDeadband{.acceleration = 16});
  for (const char* wrong : {"", "temperature", "temperature=", "temperature=0", "temperature=-1", "heat=1",
                            "temperature=1,", "rssi=1,rssi=2", "rssi=1x", "rssi=nan"})
    EXPECT_FALSE(historyDeadbandFromText(wrong)) << wrong;
  EXPECT_EQ(historySizeFromText("500M"), 500ULL << 20);
  EXPECT_EQ(historySizeFromText("1.5G"), 3ULL << 29);
  for (const char* wrong : {"", "G", "500", "0.5M", "1K", "-1G", "9999999T"})
    EXPECT_FALSE(historySizeFromText(wrong)) << wrong;
}

TEST_F(HistoryTest, LetsNoFloodOfIdentifiersFillTheMemoryOfItsReaders) {
  constexpr int kMany = 25'000;
  const auto stranger = [](int number) {
    return BeaconId::sensor(fmt::format("D0-00-00-00-{:02X}-{:02X}", number >> 8, number & 0xFF));
  };
  {
    const auto writer = openWriter();
    for (int i = 0; i < kMany; ++i) {
      Reading one = reading(1, kNow + std::chrono::seconds(i), i);
      one.beacon = stranger(i);
      writer->accept(one);
    }
  }
  const auto reader = openReader();
  const auto last = *reader->latest(1000, {stranger(7), beacon(1)});
  EXPECT_LT(last.size(), 6000U) << "and what no round has yet";
  const auto isThere = [&](int number) {
    return std::ranges::any_of(last,
                               [&](const HistoryBeacon& one) { return one.beacon == stranger(number); });
  };
  EXPECT_TRUE(isThere(7));
  EXPECT_FALSE(isThere(8));
  EXPECT_TRUE(isThere(kMany - 1000));
  EXPECT_EQ(reader->latest()->size(), static_cast<std::size_t>(kMany));

  const auto rows = allRows(*reader);
  ASSERT_EQ(rows.size(), static_cast<std::size_t>(kMany));
  for (int i = 0; i < kMany; i += 1000)
    EXPECT_EQ(std::get<Reading>(rows[static_cast<std::size_t>(i)].record).beacon, stranger(i));
  const auto first = *reader->latestAt({stranger(3)}, kNow + 24h);
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(std::get<Reading>(first[0].latest->record).shown.temperature, 3);
}

}  // namespace
}  // namespace brenloft
