#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLRecordList.h"

namespace {

using platform::Dictionary;
using platform::NSNumber;
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
    ASSERT_EQ(list.find(identity, uuid, major, minor, from, end), expected);
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

}  // namespace
