#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/sdk/StoreOnPlatform.h"

// How the process ends, what it leaves behind, and many threads at once.
namespace {

using Class = BRLDataManager::Class;

// Under the sanitizers, which are debug builds, everything takes longer and says the same.
#ifdef NDEBUG
constexpr int kKills = 200;
#else
constexpr int kKills = 10;
#endif

// Room for the store's files as they are, but not for a long text.
constexpr rlim_t kRoomToOpen = 60'000;
const std::string kTooLong(200'000, 'x');

void quietAbort() {
  setrlimit(RLIMIT_CORE, std::initializer_list<rlimit>{{0, 0}}.begin());
}

void limitFiles(rlim_t octets) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{octets, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(StoreEnds, AStoreThatCannotBeOpenedEndsTheProcessAndStaysAsItIs) {
  const test::TemporaryFolder folder;
  test::openContext(folder / "ServiceModel.sqlite");  // of another model
  const auto before = folder.contents();
  EXPECT_EQ(test::launch(folder.path(), [] { quietAbort(), test::logCount(); }), -SIGABRT);
  EXPECT_TRUE(folder.contents() == before);
  std::ofstream(folder / "file") << "in place of the folder";
  EXPECT_EQ(test::launch(folder / "file", [] { quietAbort(), test::logCount(); }), -SIGABRT);
}

TEST(StoreEnds, AFullDiskEndsTheProcessAndSparesWhatWasSaved) {
  const test::TemporaryFolder folder;
  ASSERT_EQ(test::launch(folder.path(), [] { test::logSensor("kept"); }), 0);
  const auto before = folder.contents();
  EXPECT_EQ(test::launch(folder.path(),
                         [] {
                           quietAbort();
                           test::logCount();
                           limitFiles(kRoomToOpen);
                           test::logSensor(kTooLong);
                         }),
            -SIGABRT);
  EXPECT_TRUE(folder.contents().at("ServiceModel.sqlite") == before.at("ServiceModel.sqlite"));
  EXPECT_EQ(test::launch(folder.path(), [] { EXPECT_EQ(test::logCount(), 1U); }), 0);
  const test::TemporaryFolder fresh;
  EXPECT_EQ(test::launch(fresh.path(), [] { quietAbort(), limitFiles(100), test::logSensor(); }), -SIGABRT);
  EXPECT_EQ(test::launch(fresh.path(), [] { test::logSensor(); }), 0) << "room again";
}

TEST(StoreEnds, AStoreThatIsRemovedUnderTheProcessEndsIt) {
  const test::TemporaryFolder folder;
  const auto application = [&] {
    quietAbort();
    test::logSensor();
    std::filesystem::rename(folder / "ServiceModel.sqlite", folder / "away");
    test::logSensor();
  };
  EXPECT_EQ(test::launch(folder.path(), application), -SIGABRT);
}

TEST(StoreEnds, TheSaveOfTheApplicationForgivesAFailureAndKeepsTheChanges) {
  const test::TemporaryFolder folder;
  const auto application = [] {
    using Store = BRLCoreDataManager::Class;
    Store::insertNewObjectForEntityForName("SensorLog")->setValue_forKey(kTooLong, "tbd");
    limitFiles(kRoomToOpen);
    Store::save();
    EXPECT_TRUE(Store::sharedManagedObjectContext()->hasChanges());
    EXPECT_EQ(test::logCount(), 1U);
    limitFiles(RLIM_INFINITY);
    Store::save();
    EXPECT_FALSE(Store::sharedManagedObjectContext()->hasChanges());
  };
  EXPECT_EQ(test::launch(folder.path(), application), 0);
  EXPECT_EQ(test::launch(folder.path(), [] { EXPECT_EQ(test::logCount(), 1U); }), 0);
}

// A checkpoint copies the first page, with the new number of pages, before the pages that are new.
TEST(StoreEnds, AKillAmidACheckpointLeavesAStoreThatOpens) {
  const test::TemporaryFolder folder;
  const auto file = folder / "ServiceModel.sqlite";
  const auto logAndDie = [] {
    for (int i = 0; i < 300; ++i) test::logSensor();
    kill(getpid(), SIGKILL);
  };
  ASSERT_EQ(test::launch(folder.path(), logAndDie), -SIGKILL);
  ASSERT_GT(std::filesystem::file_size(file.string() + "-wal"), 0U);
  std::fstream header(file, std::ios::in | std::ios::out | std::ios::binary);
  header.seekp(30);  // the low octets of the number of pages
  header.write("\x01\x00", 2);
  header.close();
  EXPECT_EQ(test::launch(folder.path(), [] { EXPECT_EQ(test::logCount(), 300U); }), 0);
  EXPECT_EQ(test::sql(file, "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
}

// Logs until it is killed and reports each record on a pipe once its logging has returned.
[[noreturn]] void logForever(const std::filesystem::path& folder, int pipe) {
  const test::StorePlatform platform(folder);
  for (char one = 1;;) {
    test::logSensor();
    if (write(pipe, &one, 1) != 1) _exit(1);
  }
}

uint64_t logUntilKilled(const std::filesystem::path& folder, std::chrono::microseconds delay) {
  int ends[2] = {};
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) logForever(folder, ends[1]);
  close(ends[1]);
  std::this_thread::sleep_for(delay);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  uint64_t returned = 0;
  char octets[4096];
  for (ssize_t got = 0; (got = read(ends[0], octets, sizeof octets)) > 0;) {
    returned += static_cast<uint64_t>(got);
  }
  close(ends[0]);
  return returned;
}

TEST(StoreEnds, ARecordWhoseLoggingReturnedSurvivesAKillAtAnyMoment) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const test::TemporaryFolder folder;
  const auto file = folder / "ServiceModel.sqlite";
  uint64_t before = 0;
  uint64_t all = 0;
  for (int round = 0; round < kKills; ++round) {
    // Every tenth round begins without a file, so that its making is hit as well.
    if (round % 10 == 0) {
      for (const auto& [name, octets] : folder.contents()) std::filesystem::remove(folder / name);
      before = 0;
    }
    const auto returned = logUntilKilled(folder.path(), std::chrono::microseconds(random() % 60'000));
    all += returned;
    ASSERT_EQ(test::launch(folder.path(),
                           [&] {
                             EXPECT_GE(test::logCount(), before + returned);
                             EXPECT_LE(test::logCount(), before + returned + 1);
                           }),
              0)
        << "round " << round;
    ASSERT_EQ(test::sql(file, "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    before = std::stoull(test::sql(file, "SELECT count(*) FROM SensorLog")[0]);
  }
  EXPECT_GT(all, 0U) << "nothing was logged at all";
}

TEST(StoreThreads, NoRecordIsLostWhileOthersSelectCountAndDelete) {
  const test::TemporaryFolder folder;
  const test::StorePlatform platform(folder.path());
  constexpr int kEach = 300;
  std::atomic<bool> logging{true};
  std::vector<std::thread> loggers;
  for (const char* name : {"a", "b"}) {
    loggers.emplace_back([name] {
      for (int i = 0; i < kEach; ++i) test::logSensor(name);
    });
  }
  uint64_t deleted = 0;
  std::thread deleter([&] {
    // The count and the deletion are two steps, so they are held together here.
    const auto context = BRLCoreDataManager::Class::sharedManagedObjectContext();
    while (logging) {
      context->performBlockAndWait([&] {
        deleted += test::logCount();
        Class::deleteBeaconLog();
      });
      std::this_thread::yield();
    }
  });
  std::thread selector([&] {
    while (logging) {
      Class::selectBeaconLogAllWithCompletionBlock([](const auto& records) {
        if (!records) return;
        for (const auto& record : *records) EXPECT_EQ(record->zAccel(), "1024") << "half a record";
      });
      Class::selectBeaconLogAllJSONWithCompletionBlock([](const auto&) {});
      Class::setBeaconTagWithData_key(std::nullopt, "k");
      for (const auto& key : test::tagKeys()) EXPECT_EQ(key, "k");
      Class::clearBeaconTag();
    }
  });
  for (auto& thread : loggers) thread.join();
  logging = false;
  deleter.join();
  selector.join();
  EXPECT_EQ(deleted + test::logCount(), 2U * kEach);
}

}  // namespace
