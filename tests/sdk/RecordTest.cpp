#include <array>
#include <random>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLContextManagerDelegate.h"
#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLLastHeard.h"
#include "BrenloftSDK/BRLRecordList.h"

namespace {

using platform::Date;
using platform::Dictionary;
using platform::NSNull;
using platform::NSNumber;
using std::chrono::microseconds;

TEST(Record, WithoutADictionaryHasZerosAndAbsentTexts) {
  const Dictionary empty;
  for (const Dictionary* dictionary : {static_cast<const Dictionary*>(nullptr), &empty}) {
    const BRLBeaconDataModel record(dictionary);
    EXPECT_EQ(record.beaconType(), 0U);
    EXPECT_EQ(record.status(), 0);
    EXPECT_EQ(record.temperature(), std::nullopt);
    EXPECT_EQ(record.statusUpdatedDate(), std::nullopt);
  }
}

TEST(Record, IntegerFieldsTakeThe32BitValueOfNumbersAndTextsAndZeroForNull) {
  struct Row {
    const char* name;
    platform::Value value;
    int64_t expected;
  };
  const Row rows[] = {
      {"number", NSNumber(-67), -67},
      {"text", std::string("-67"), -67},
      {"text with a tail", std::string("  +12abc"), 12},
      {"text without digits", std::string("abc"), 0},
      {"lone sign", std::string("-"), 0},
      {"text beyond 32 bits", std::string("99999999999999999999"), 2147483647},
      {"text below 32 bits", std::string("-99999999999"), -2147483648LL},
      {"fraction", NSNumber(-3.9), -3},
      {"wide number keeps its low 32 bits", NSNumber(int64_t{0x1'8000'0000}), -2147483648LL},
      {"null", NSNull{}, 0},
      {"date", Date(microseconds(5)), 0},
  };
  for (const Row& row : rows) {
    const BRLBeaconDataModel record(Dictionary{{"major", row.value}, {"beaconType", row.value}});
    EXPECT_EQ(record.major(), row.expected) << row.name;
    EXPECT_EQ(record.beaconType(), static_cast<uint64_t>(row.expected)) << row.name;
  }
}

TEST(Record, NullIsTheEmptyTextButAnAbsentKeyStaysAbsent) {
  const BRLBeaconDataModel record(Dictionary{{"temperature", NSNull{}}, {"statusUpdatedDate", NSNull{}}});
  EXPECT_EQ(record.temperature(), "");
  EXPECT_EQ(record.humidity(), std::nullopt);
  EXPECT_EQ(record.statusUpdatedDate(), std::nullopt);
}

TEST(Record, ANullPointerIsAnAbsentText) {
  BRLBeaconDataModel record(
      Dictionary{{"temperature", std::string("23.50")}, {"tbd", std::string("0A0B0C")}});
  record.setTemperature(nullptr);
  EXPECT_EQ(record.temperature(), std::nullopt);
  const char* unset = nullptr;
  record.setTbd(unset);
  EXPECT_EQ(record.tbd(), std::nullopt);
  record.setTbd("0D0E0F");
  EXPECT_EQ(record.tbd(), "0D0E0F");
}

TEST(Record, KeepsADateGivenAsTextUntilARealOneReplacesIt) {
  BRLBeaconDataModel record(Dictionary{{"statusUpdatedDate", std::string("2016-08-05 14:23:10")}});
  EXPECT_EQ(record.statusUpdatedDateText(), "2016-08-05 14:23:10");
  EXPECT_EQ(record.statusUpdatedDate(), std::nullopt);
  record.setStatusUpdatedDate(Date(microseconds(1)));
  EXPECT_EQ(record.statusUpdatedDateText(), std::nullopt);
  EXPECT_EQ(record.statusUpdatedDate(), Date(microseconds(1)));
}

// The lost check's look at a list of this record alone.
bool isFoundLost(BRLBeaconDataModel& record, BRLLastHeard& lastHeard, int64_t cutoff) {
  const auto entry = lastHeard.take(0, 1, cutoff);
  return entry && record.markLostIfSilentSince(cutoff, entry->second);
}

TEST(Record, IsLostAtTheCutoffSecondAndNotBefore) {
  BRLBeaconDataModel record(
      Dictionary{{"status", NSNumber(1)}, {"statusUpdatedDate", Date(microseconds(100'999'999))}});
  const auto lastHeard = std::make_shared<BRLLastHeard>();
  record.enter(lastHeard, 0);
  EXPECT_FALSE(isFoundLost(record, *lastHeard, 99));
  EXPECT_TRUE(isFoundLost(record, *lastHeard, 100));
}

TEST(Record, TheUniqueIdIsTheBeaconIdAsWell) {
  BRLBeaconDataModel record;
  record.setUniqueId("0C-61-CF-12-34-56");
  EXPECT_EQ(record.beaconId(), "0C-61-CF-12-34-56");
  EXPECT_EQ(record.uniqueId(), record.beaconId());
}

TEST(Record, TellsWhatTheLastFrameSaidAndWhatWasSetSince) {
  std::array<std::byte, kBRLSensorFrameLength> octets{};
  for (size_t i = 0; i < octets.size(); ++i) octets.at(i) = static_cast<std::byte>(i * 37 + 11);
  const auto frame = *BRLSensorFrame::of(octets);
  const BRLSensorReadings said = frame.readings();
  const Date heard(microseconds(1));
  BRLBeaconDataModel record("FFF0", heard, -60, frame);
  const auto expectTexts = [&](const std::string& beaconId, const std::string& humidity) {
    const BRLBeaconSnapshot told = record.snapshot();
    EXPECT_EQ(std::tie(told.beaconId, told.uniqueId, told.temperature, told.humidity, told.tbd, told.xAccel,
                       told.yAccel, told.zAccel),
              std::tie(beaconId, said.uniqueId, said.temperature, humidity, said.tbd, said.xAccel,
                       said.yAccel, said.zAccel));
    EXPECT_EQ(record.humidity(), humidity);
  };
  Dictionary dictionary = said.dictionary();
  dictionary.emplace("beaconType", NSNumber(1));
  dictionary.emplace("beaconId", said.uniqueId);
  dictionary.emplace("uuid", "FFF0");
  dictionary.emplace("rssi", NSNumber(-60));
  dictionary.emplace("status", NSNumber(1));
  dictionary.emplace("statusUpdatedDate", heard);
  EXPECT_TRUE(record.snapshot() == BRLBeaconDataModel(dictionary).snapshot());
  expectTexts(said.uniqueId, said.humidity);
  record.setHumidity("50.00");
  expectTexts(said.uniqueId, "50.00");
  record.refresh(heard, -60, frame);
  expectTexts(said.uniqueId, said.humidity);
}

// A refresh that has returned is never followed by a loss decided from the date before it.
TEST(Record, RefreshAndLostCheckDecideOnWholeStates) {
  BRLBeaconDataModel record(Dictionary{{"status", NSNumber(1)}, {"statusUpdatedDate", Date()}});
  const auto lastHeard = std::make_shared<BRLLastHeard>();
  record.enter(lastHeard, 0);
  const auto frameOf = [](int octet) {
    return *BRLSensorFrame::of(platform::Data(kBRLSensorFrameLength, static_cast<std::byte>(octet)));
  };
  const std::array frames{frameOf(0), frameOf(1), frameOf(2)};
  std::atomic<bool> done{false};
  std::thread sweeper([&] {
    while (!done) isFoundLost(record, *lastHeard, 1);
  });
  for (int i = 0; i < 20'000; ++i) {
    record.setStatusUpdatedDate(Date());
    record.refresh(Date(std::chrono::seconds(2)), -i % 100, frames[static_cast<size_t>(i % 3)]);
    if (i % 2 != 0) record.setUniqueId("0C-61-CF-12-34-56");
    record.markPresent();
    ASSERT_EQ(record.status(), 1);
    const auto snapshot = record.snapshot();
    ASSERT_EQ(snapshot.beaconId, snapshot.uniqueId);
  }
  done = true;
  sweeper.join();
  bool isFound = false;  // whatever stale entries stand before its own
  for (int64_t entries = 0; entries < 20'000 && !isFound; ++entries)
    isFound = isFoundLost(record, *lastHeard, 2);
  EXPECT_TRUE(isFound) << "the checks have lost the record's entry";
}

using Identity = BRLRecordList::Identity;

BRLRecordList::Record recordOf(const std::string& uuid, int major, int minor) {
  return std::make_shared<BRLBeaconDataModel>(
      Dictionary{{"uuid", uuid}, {"major", NSNumber(major)}, {"minor", NSNumber(minor)}});
}

bool standsFor(const BRLBeaconDataModel& record, Identity identity, const std::string& uuid, int64_t major,
               int64_t minor) {
  return record.uuid() == uuid && (identity == Identity::uuid || record.major() == major) &&
         (identity != Identity::uuidMajorAndMinor || record.minor() == minor);
}

TEST(RecordList, FindsWhatALinearWalkFinds) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  // Letters in another case are another UUID. Nothing has the last one.
  const auto uuidBelow = [&](int n) { return std::string(1, std::string("AaBC").at(below(n))); };
  BRLRecordList list;
  list.append(std::make_shared<BRLBeaconDataModel>());  // without a uuid it stands for nothing
  for (int i = 0; i < 300; ++i) list.append(recordOf(uuidBelow(3), below(3), below(3)));
  for (int i = 0; i < 2000; ++i) {
    const auto identity = static_cast<Identity>(below(3));
    const std::string uuid = uuidBelow(4);
    const int major = below(4);
    const int minor = below(4);
    const auto from = static_cast<size_t>(below(301));
    const auto end = static_cast<size_t>(below(302));
    std::optional<size_t> expected;
    for (size_t k = from; k < end && !expected; ++k) {
      if (standsFor(*list[k], identity, uuid, major, minor)) expected = k;
    }
    const auto match = list.find(identity, uuid, major, minor, from, end);
    ASSERT_EQ(match ? std::optional(match->number) : std::nullopt, expected);
    EXPECT_EQ(match && match->isLast,
              match && !list.find(identity, uuid, major, minor, match->number + 1, list.size()));
  }
}

TEST(RecordList, WalksSeeWholeElementsWhileAnotherThreadAppends) {
  constexpr size_t kRecords = 5000;
  BRLRecordList list;
  std::thread appender([&] {
    for (size_t i = 0; i < kRecords; ++i) list.append(recordOf("A", static_cast<int>(i), 0));
  });
  const auto walk = [&] {
    for (size_t seen = 0; seen < kRecords;) {
      const auto view = list.view();
      ASSERT_GE(view.size(), seen);
      seen = view.size();
      int64_t position = 0;
      for (const auto& record : view) ASSERT_EQ(record->major(), position++);
      ASSERT_EQ(position, static_cast<int64_t>(seen));
    }
  };
  std::thread other(walk);
  walk();
  appender.join();
  other.join();
}

TEST(RecordList, AWalkEndsAlthoughItsBodyAppends) {
  BRLRecordList list;
  list.append(recordOf("A", 0, 0));
  size_t visits = 0;
  for (const auto& record : list.view()) {
    list.append(record);
    ++visits;
  }
  EXPECT_EQ(visits, 1U);
  EXPECT_EQ(list.size(), 2U);
}

using Beacon = std::shared_ptr<BRLBeaconDataModel>;
using Operation = BRLDelegateOperation;

class BytesOnly final : public BRLDelegateOf<BytesOnly> {
 public:
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>&) override {}
};

class Earlier : public BRLDelegateOf<Earlier> {
 public:
  using BRLOpenDelegate = Earlier;
  void contextManager_forBeacon(BRLContextManager&, const Beacon&) override {}
};

class Extended final : public BRLDelegateOf<Extended, Earlier> {
 public:
  void emergencyCallback_forBeacon(BRLContextManager&, const Beacon&) override {}
};

std::string answersOf(const BRLContextManagerDelegate& delegate) {
  std::string answers;
  for (const Operation operation : {Operation::forBeacon, Operation::didRangeBeaconSensors,
                                    Operation::didByteArray, Operation::emergencyCallback}) {
    answers += delegate.respondsTo(operation) ? '1' : '0';
  }
  return answers;
}

TEST(Delegate, RespondsToExactlyWhatItsTypeOverridesOrWhatIsSet) {
  EXPECT_EQ(answersOf(BytesOnly{}), "0010");
  EXPECT_EQ(answersOf(Earlier{}), "1000");
  EXPECT_EQ(answersOf(Extended{}), "1001");

  BRLDelegateHandlers handlers;
  EXPECT_EQ(answersOf(handlers), "0000");
  handlers.didRangeBeaconSensors = [](BRLContextManager&, const BRLRecordList&) {};
  handlers.emergencyCallback = [](BRLContextManager&, const Beacon&) {};
  EXPECT_EQ(answersOf(handlers), "0101");
}

}  // namespace
