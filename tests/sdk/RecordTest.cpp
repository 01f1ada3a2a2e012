#include <thread>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLLastHeard.h"

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

// A refresh that has returned is never followed by a loss decided from the date before it.
TEST(Record, RefreshAndLostCheckDecideOnWholeStates) {
  BRLBeaconDataModel record(Dictionary{{"status", NSNumber(1)}, {"statusUpdatedDate", Date()}});
  const auto lastHeard = std::make_shared<BRLLastHeard>();
  record.enter(lastHeard, 0);
  std::atomic<bool> done{false};
  std::thread sweeper([&] {
    while (!done) isFoundLost(record, *lastHeard, 1);
  });
  for (int i = 0; i < 20'000; ++i) {
    record.setStatusUpdatedDate(Date());
    record.refresh(Date(std::chrono::seconds(2)), -i % 100, {.uniqueId = std::to_string(i % 3)});
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

}  // namespace
