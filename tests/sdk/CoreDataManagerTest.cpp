#include <fstream>
#include <thread>

#include <gmock/gmock.h>

#include "BrenloftSDK/SensorLog.h"
#include "tests/sdk/StoreOnPlatform.h"

namespace {

using testing::ElementsAre;
using Class = BRLCoreDataManager::Class;

class CoreDataManager : public testing::Test {
 protected:
  std::filesystem::path file() const { return folder.path() / "ServiceModel.sqlite"; }

  test::TemporaryFolder folder;
  test::StorePlatform platform{folder.path()};
};

TEST_F(CoreDataManager, BuildsTheStackWhenTheContextIsFirstAskedForAndSaysSo) {
  auto* manager = Class::sharedManager();
  EXPECT_THAT(platform->log().lines(), ElementsAre("CoreDataManager initializing"));
  EXPECT_FALSE(std::filesystem::exists(file()));
  platform->log().clear();
  const auto context = Class::sharedManagedObjectContext();
  EXPECT_THAT(platform->log().lines(),
              ElementsAre("QQ", "AA", "-[BRLCoreDataManager persistentStoreCoordinator]"));
  EXPECT_TRUE(std::filesystem::exists(file()));
  platform->log().clear();
  EXPECT_EQ(manager->managedObjectContext(), context);
  EXPECT_EQ(manager->persistentStoreCoordinator(), context->persistentStoreCoordinator());
  EXPECT_THAT(platform->log().lines(), ElementsAre("-[BRLCoreDataManager persistentStoreCoordinator]"));
}

TEST_F(CoreDataManager, OnlyTheInstanceThatWasFirstHasAContext) {
  ASSERT_NE(Class::sharedManagedObjectContext(), nullptr);
  BRLCoreDataManager second;
  platform->log().clear();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(second.managedObjectContext(), nullptr);
  EXPECT_THAT(platform->log().lines(), ElementsAre("QQ", "QQ"));
  second.saveContext();
  EXPECT_FALSE(second.fetch("SensorLog"));
  BRLDataManager data;
  data.setCoreDataManager(&second);
  int nothings = 0;
  data.selectBeaconLogAllWithCompletionBlock([&](const auto& records) { nothings += records ? 0 : 1; });
  data.selectBeaconLogAllCountWithCompletionBlock([&](uint64_t count) { EXPECT_EQ(count, 0U); });
  data.getBeaconTagListWithCompletionBlock([&](const auto& tags) { nothings += tags ? 0 : 1; });
  platform->clock().runDue();
  EXPECT_EQ(nothings, 2);
}

TEST_F(CoreDataManager, SaveContextSavesChangesOnlyAndSaveAlways) {
  const auto context = Class::sharedManagedObjectContext();
  Class::sharedManager()->saveContext();
  EXPECT_EQ(context->saveCount(), 0U);
  Class::save();
  EXPECT_EQ(context->saveCount(), 1U);
  Class::insertNewObjectForEntityForName("SensorLog");
  EXPECT_EQ(test::sql(file(), "SELECT count(*) FROM SensorLog"), std::vector<std::string>{"0"});
  Class::sharedManager()->saveContext();
  EXPECT_EQ(context->saveCount(), 2U);
  const auto rows = Class::sharedManager()->fetch("SensorLog");
  ASSERT_EQ(rows->size(), 1U);
  EXPECT_FALSE(std::dynamic_pointer_cast<SensorLog>(rows->front())->battery());
  EXPECT_FALSE(Class::sharedManager()->fetch("Nothing"));
}

TEST_F(CoreDataManager, KeepsEveryUnsignedType) {
  auto row = std::dynamic_pointer_cast<SensorLog>(Class::insertNewObjectForEntityForName("SensorLog"));
  row->setBeaconType(UINT64_MAX);
  EXPECT_EQ(row->beaconType(), UINT64_MAX);
  Class::save();
  EXPECT_THAT(test::sql(file(), "SELECT beaconType, uuid FROM SensorLog"), ElementsAre("-1|NULL"));
  EXPECT_THAT(test::sql(file(), "SELECT name FROM pragma_table_info('BRLUserDataModel')"),
              ElementsAre("userData", "uuid"));
}

TEST_F(CoreDataManager, ConcurrentFirstCallsMakeOneManagerAndOneContext) {
  std::vector<std::pair<BRLCoreDataManager*, platform::NSManagedObjectContext*>> seen(4);
  std::vector<std::thread> threads;
  for (auto& slot : seen) {
    threads.emplace_back([&slot] {
      slot = {Class::sharedManager(), Class::sharedManagedObjectContext().get()};
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(seen.front()));
  EXPECT_EQ(platform->log().count("AA"), 1U);
}

TEST(CoreDataManagerWithout, AModelThrowsOnFirstAccess) {
  const test::TemporaryFolder folder;
  const test::StorePlatform platform(folder.path(), platform::makeBundle({}));
  EXPECT_THROW(Class::sharedManager()->managedObjectModel(), platform::NSInvalidArgumentException);
  EXPECT_NE(Class::storeProblem(), std::nullopt);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(CoreDataManagerWithout, AFolderSaysWhy) {
  const test::TemporaryFolder folder;
  std::ofstream(folder / "file") << "in place of the folder";
  const test::StorePlatform platform(folder / "file");
  EXPECT_THAT(Class::storeProblem().value().text, testing::HasSubstr("ServiceModel.sqlite: "));
}

TEST_F(CoreDataManager, TellsWhetherTheStoreCanBeUsed) {
  EXPECT_EQ(Class::storeProblem(), std::nullopt);
  test::logSensor();
  EXPECT_EQ(Class::storeProblem(), std::nullopt) << "the store is in use by this process";
  test::logSensor();
  EXPECT_EQ(test::logCount(), 2U);
}

}  // namespace
