#include <gmock/gmock.h>

#include "BrenloftSDK/SensorLogReader.h"
#include "tests/sdk/StoreOnPlatform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Class = BRLDataManager::Class;

class DataManager : public testing::Test {
 protected:
  DataManager() {
    setenv("TZ", "Asia/Seoul", 1);
    tzset();
  }
  std::filesystem::path file() const { return folder.path() / "ServiceModel.sqlite"; }
  platform::Data octets(std::string_view text) { return platform::toData(platform::viewOf(text)); }

  test::TemporaryFolder folder;
};

class OpenDataManager : public DataManager {
 protected:
  test::StorePlatform platform{folder.path()};
};

TEST_F(OpenDataManager, AnEmptyLogDeliversNothingLaterOnTheMainQueueAndZeroAtOnce) {
  int nothings = 0;
  const auto expectNothing = [&](const auto& result) { nothings += result ? 100 : 1; };
  Class::selectBeaconLogAllWithCompletionBlock(expectNothing);
  Class::selectBeaconLogAllJSONWithCompletionBlock(expectNothing);
  Class::getBeaconTag_completionBlock("no such tag", expectNothing);
  EXPECT_EQ(test::logCount(), 0U);
  EXPECT_EQ(nothings, 0);
  platform->clock().runDue();
  EXPECT_EQ(nothings, 3);
  Class::deleteBeaconLog();
  EXPECT_EQ(BRLCoreDataManager::Class::sharedManagedObjectContext()->saveCount(), 0U);
}

TEST_F(OpenDataManager, AbsentCompletionBlocksAreAccepted) {
  for (int full = 0; full < 2; ++full) {
    Class::selectBeaconLogAllWithCompletionBlock({});
    Class::selectBeaconLogAllJSONWithCompletionBlock({});
    Class::selectBeaconLogAllCountWithCompletionBlock({});
    Class::getBeaconTag_completionBlock("k", {});
    Class::getBeaconTagListWithCompletionBlock({});
    platform->clock().runDue();
    test::logSensor();
    Class::setBeaconTagWithData_key(std::nullopt, "k");
  }
  EXPECT_EQ(test::logCount(), 2U);
}

TEST_F(OpenDataManager, ALoggedRecordComesBackWhole) {
  test::logSensor();
  test::logSensor();
  EXPECT_EQ(BRLCoreDataManager::Class::sharedManagedObjectContext()->saveCount(), 2U);
  BRLDataManager::Records records;
  Class::selectBeaconLogAllWithCompletionBlock([&](auto selected) { records = std::move(*selected); });
  ASSERT_EQ(records.size(), 2U);
  const auto read = records[1]->snapshot();
  EXPECT_EQ(read.beaconType, 1U);
  EXPECT_EQ(read.rssi, -67);
  EXPECT_EQ(read.humidity, "");
  EXPECT_EQ(read.zAccel, "1024");
  EXPECT_FALSE(read.statusUpdatedDate);
  EXPECT_EQ(records[1]->statusUpdatedDateText(), "2016-08-05 23:23:10");
}

TEST_F(OpenDataManager, TheDocumentIsAnArrayOfObjectsInTheOrderOfTheLog) {
  auto dictionary = test::sensorDictionary("say \"\\\n\x01 \xEC\x9C\x84 \xff");
  dictionary.erase("txPower");  // reads as 0
  Class::shareInstance()->loggingForSensor(BRLBeaconDataModel(dictionary));
  Class::shareInstance()->loggingForSensor(BRLBeaconDataModel());
  EXPECT_EQ(test::logJSON(), R"([
  {
    "beaconType": 1,
    "beaconId": "say \"\\\n\u0001 위 �",
    "uuid": "FEAA",
    "major": 0,
    "minor": 0,
    "rssi": -67,
    "status": 1,
    "statusUpdatedDate": "20160805232310",
    "txPower": 0,
    "emergency": 0,
    "battery": 99,
    "temperature": "23.50",
    "humidity": "",
    "uniqueId": "say \"\\\n\u0001 위 �",
    "tbd": "0a0b0c",
    "xAccel": "-12",
    "yAccel": "0",
    "zAccel": "1024"
  },
  {
    "beaconType": 0
  }
])");
}

// A row whose value at one place is absent gives the members before it and no other.
TEST_F(OpenDataManager, ARowEndsAtItsFirstAbsentValue) {
  const std::vector<std::string> order = {
      "beaconType", "beaconId",          "uuid",    "major",     "minor",   "rssi",
      "status",     "statusUpdatedDate", "txPower", "emergency", "battery", "temperature",
      "humidity",   "uniqueId",          "tbd",     "xAccel",    "yAccel",  "zAccel"};
  test::logSensor();
  for (std::size_t absent = 0; absent < order.size(); ++absent) {
    SCOPED_TRACE(order[absent]);
    Class::deleteBeaconLog();
    test::logSensor();
    test::sql(file(), "UPDATE SensorLog SET " + order[absent] + " = NULL");
    const std::string json = test::logJSON();
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(json.find('"' + order[i] + '"') != std::string::npos, i < absent) << order[i];
    }
    Class::selectBeaconLogAllWithCompletionBlock([&](const auto& records) {
      EXPECT_EQ(records->front()->zAccel(), std::nullopt);
      EXPECT_EQ(records->front()->rssi(), absent > 5 ? -67 : 0);
    });
  }
}

TEST_F(OpenDataManager, ADocumentOfManyRowsAgreesWithTheFileReadByOthers) {
  if (std::system("python3 -c 'import sqlite3'") != 0) GTEST_SKIP() << "python3 is missing";
  for (int i = 0; i < 500; ++i) test::logSensor("id " + std::to_string(i) + " \"\xC3\xA9\t\"");
  std::ofstream(folder / "log.json") << test::logJSON();
  std::string streamed;
  const auto reader = *SensorLogReader::open(file());
  ASSERT_TRUE(reader->exportJSON([&](auto piece) { streamed += piece; }));
  EXPECT_TRUE(streamed == test::logJSON());
  std::ofstream(folder / "check.py") << R"(
import json, sqlite3, sys, time
rows = json.load(open(sys.argv[1] + '/log.json', encoding='utf-8'))
base = sqlite3.connect(sys.argv[1] + '/ServiceModel.sqlite')
base.row_factory = sqlite3.Row
stored = [dict(row) for row in base.execute('SELECT * FROM SensorLog ORDER BY rowid')]
for row in stored:
    row['statusUpdatedDate'] = time.strftime('%Y%m%d%H%M%S', time.localtime(row['statusUpdatedDate']))
sys.exit(0 if rows == stored and len(rows) == 500 else 1)
)";
  EXPECT_EQ(std::system(("python3 " + (folder / "check.py").string() + " " + folder.path().string()).c_str()),
            0);
}

TEST_F(OpenDataManager, ASecondTagOfAKeyStandsBesideTheFirst) {
  Class::setBeaconTagWithData_key(octets("one"), "k");
  Class::setBeaconTagWithData_key(octets("two"), "k");
  Class::setBeaconTagWithData_key(platform::DataView(), "K");
  Class::setBeaconTagWithData_key(octets("no key"), std::nullopt);
  EXPECT_THAT(test::tagKeys(), ElementsAre("k", "k", "K", "NULL"));
  const auto get = [&](BRLOptionalText key) {
    std::optional<platform::Data> data;
    Class::getBeaconTag_completionBlock(std::move(key), [&](auto found) { data = std::move(found); });
    return data;
  };
  EXPECT_EQ(get("k"), octets("one"));
  EXPECT_EQ(get("K"), platform::Data());
  EXPECT_EQ(get(std::nullopt), octets("no key"));
}

TEST_F(DataManager, ClearedTagsComeBackUnlessSomethingIsSaved) {
  const auto relaunch = [&](const std::function<void()>& application) {
    ASSERT_EQ(test::launch(folder.path(), application), 0);
  };
  relaunch([&] {
    Class::clearBeaconTag();
    Class::setBeaconTagWithData_key(octets("1"), "a");
    Class::setBeaconTagWithData_key(octets("2"), "b");
    test::logSensor();
  });
  relaunch([] {
    EXPECT_THAT(test::tagKeys(), ElementsAre("a", "b"));
    EXPECT_EQ(test::logCount(), 1U);
    Class::clearBeaconTag();
    EXPECT_THAT(test::tagKeys(), IsEmpty());
  });
  relaunch([&] {
    EXPECT_THAT(test::tagKeys(), ElementsAre("a", "b"));
    Class::clearBeaconTag();
    Class::setBeaconTagWithData_key(octets("3"), "c");
  });
  relaunch([] {
    EXPECT_THAT(test::tagKeys(), ElementsAre("c"));
    Class::clearBeaconTag();
    Class::deleteBeaconLog();
  });
  relaunch([] {
    EXPECT_THAT(test::tagKeys(), IsEmpty());
    EXPECT_EQ(test::logCount(), 0U);
  });
}

}  // namespace
