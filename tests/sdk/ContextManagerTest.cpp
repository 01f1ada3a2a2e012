#include <array>
#include <barrier>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "platform/foundation/NSUserDefaults.h"
#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::NSNumber;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using Class = BRLContextManager::Class;

// Settings in memory that write down what is done to them.
class RecordingUserDefaults final : public platform::NSUserDefaults {
 public:
  std::optional<platform::Value> objectForKey(std::string_view key) const override {
    std::this_thread::yield();  // to whoever would come in between
    const std::scoped_lock lock(mutex_);
    return values_->objectForKey(key);
  }
  void setObject_forKey(platform::Value value, std::string_view key) override {
    std::this_thread::yield();
    const std::scoped_lock lock(mutex_);
    operations_.push_back("set " + std::string(key));
    values_->setObject_forKey(std::move(value), key);
  }
  void removeObjectForKey(std::string_view key) override { values_->removeObjectForKey(key); }
  bool synchronize() override {
    const std::scoped_lock lock(mutex_);
    operations_.emplace_back("synchronize");
    return values_->synchronize();
  }

  /// What was done since the last time.
  Lines take() { return std::exchange(operations_, {}); }

 private:
  const std::shared_ptr<platform::NSUserDefaults> values_ = platform::makeInMemoryUserDefaults();
  mutable std::mutex mutex_;
  Lines operations_;  // guarded by mutex_
};

class ContextManager : public ManagerTest {
 protected:
  ContextManager() : ManagerTest({.userDefaults = std::make_shared<RecordingUserDefaults>()}) {}

  const std::shared_ptr<RecordingUserDefaults> defaults =
      std::static_pointer_cast<RecordingUserDefaults>(simulated.services().userDefaults);
};

TEST_F(ContextManager, FreshInstallSeedsTheExitTimeAndTheSafetyRegion) {
  EXPECT_EQ(manager().beaconExitTime(), 5.0);
  EXPECT_EQ(defaults->doubleForKey("BeaconExitTime"), 5.0);
  EXPECT_EQ(defaults->objectForKey("SaftyRegionIdentifier"), platform::Value(NSNumber(int64_t{2})));
}

TEST_F(ContextManager, TakesStoredConfigurationWritesTheExitTimeBackAndLeavesTheSafetyRegionsStateAlone) {
  defaults->setDouble_forKey(3.0, "BeaconExitTime");
  defaults->setObject_forKey(NSNumber(int64_t{1}), "SaftyRegionIdentifier");
  defaults->take();
  EXPECT_EQ(manager().beaconExitTime(), 3.0);
  EXPECT_THAT(defaults->take(), ElementsAre("set CoredataCreateOnce", "set BeaconExitTime", "synchronize"));
  EXPECT_EQ(defaults->doubleForKey("BeaconExitTime"), 3.0);
  EXPECT_EQ(defaults->objectForKey("SaftyRegionIdentifier"), platform::Value(NSNumber(int64_t{1})));
  const BRLCoreDataManager another;
  EXPECT_THAT(defaults->take(), IsEmpty()) << "the creation flag is set once";
  EXPECT_TRUE(defaults->boolForKey("CoredataCreateOnce"));
}

TEST_F(ContextManager, InstanceSetterStoresWhateverChangedAndTheClassSetterRefusesZero) {
  manager().setBeaconExitTime(0.0);
  EXPECT_EQ(defaults->doubleForKey("BeaconExitTime"), 0.0);
  defaults->take();
  manager().setBeaconExitTime(0.0);
  EXPECT_THAT(defaults->take(), IsEmpty()) << "no change";

  Class::setBeaconExitTime(7.5);
  for (const double refused : {0.0, -1.0}) Class::setBeaconExitTime(refused);
  EXPECT_EQ(Class::getBeaconExitTime(), 7.5);
  EXPECT_EQ(defaults->doubleForKey("BeaconExitTime"), 7.5);
  const std::string refusal = "error - responseTimeInterval 는 0보다 커야 합니다.";
  const auto lines = simulated.log().lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), refusal), 2);
}

// Runs `work` on two threads at once, so many rounds, each with its number.
void onTwoThreads(int rounds, const std::function<void(int)>& work) {
  std::barrier begin(2);
  const auto run = [&](int number) {
    for (; number < 2 * rounds; number += 2) {
      begin.arrive_and_wait();
      work(number);
    }
  };
  std::thread other(run, 1);
  run(0);
  other.join();
}

TEST_F(ContextManager, OneInstanceIsMadeWhoeverAsksFirst) {
  std::array<BRLDataManager*, 2> instances{};
  onTwoThreads(1, [&](int number) { instances.at(number) = Class::shareInstance(); });
  EXPECT_EQ(instances[0], instances[1]);
  EXPECT_THAT(defaults->take(), ElementsAre("set CoredataCreateOnce", "set SaftyRegionIdentifier",
                                            "set BeaconExitTime", "synchronize"));
}

TEST_F(ContextManager, ExitTimesFromTwoThreadsLeaveTheSettingThatIsInMemory) {
  for (int round = 0; round < 300; ++round) {
    onTwoThreads(5, [&](int number) { manager().setBeaconExitTime(number + 1); });
    ASSERT_EQ(defaults->doubleForKey("BeaconExitTime"), manager().beaconExitTime()) << "round " << round;
  }
}

TEST_F(ContextManager, ConfigurationCallPutsTheMinorIntoTheMajor) {
  manager().setBeaconMinor(99);
  EXPECT_EQ(Class::brlWithProximityUUID_major_minor("FFF0", 1, 7), &manager());
  EXPECT_EQ(BRLDataManager::Class::shareInstance(), &manager());
  EXPECT_EQ(manager().beaconMajor(), 7);
  EXPECT_EQ(manager().beaconMinor(), 99);
  Class::brlWithProximityUUID_major("FFF1", 5);
  EXPECT_EQ(manager().beaconMajor(), 0);
  EXPECT_EQ(manager().beaconUUID(), "FFF1");
}

// Its log is standard error, where a process that ends leaves its last line.
class LoudManager : public ManagerTest {
 protected:
  LoudManager()
      : ManagerTest({}, [](platform::Platform& services) {
          services.log = [](std::string_view text) {
            std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
          };
        }) {}
};

TEST_F(LoudManager, APlainDataManagerAskedFirstStaysTheSharedInstanceAndEndsOnForeignOperations) {
  BRLDataManager* plain = BRLDataManager::Class::shareInstance();
  EXPECT_EQ(Class::shareInstance(), plain);
  EXPECT_EQ(dynamic_cast<BRLContextManager*>(plain), nullptr);
  Class::setBeaconTagWithData_key(platform::Data(3), "key");  // the base class has this one
  const std::string rest = ": unrecognized selector sent to the shared instance\n";
  EXPECT_DEATH(Class::startLeScan(), Eq("-[BRLDataManager start]" + rest));
  EXPECT_DEATH(Class::setBeaconType(1), Eq("-[BRLDataManager setBeaconType:]" + rest));
}

TEST_F(LoudManager, AnExceptionThatLeavesACallbackEndsTheProcessAndOneThatLeavesACompletionDoesNot) {
  BRLDelegateHandlers handlers;
  handlers.forBeacon = [](BRLContextManager&, const auto&) { throw std::runtime_error("from the delegate"); };
  Class::setDelegate(&handlers);
  Class::setBeaconType(1);
  Class::startLeScan();
  simulated.advance({});
  EXPECT_DEATH(EXPECT_ANY_THROW(hear("FFF0")), HasSubstr("from the delegate"));
  const auto fail = [] { throw std::runtime_error("from a block"); };
  simulated.clock().mainQueue()->async(fail);
  EXPECT_DEATH(EXPECT_ANY_THROW(simulated.advance({})), HasSubstr("from a block"));
  EXPECT_THROW(Class::selectBeaconLogAllCountWithCompletionBlock([&](uint64_t) { fail(); }),
               std::runtime_error);
  EXPECT_EQ(loggedRows(), 0U);
}

TEST_F(LoudManager, AnotherPlatformEndsTheProcess) {
  EXPECT_DEATH(platform::SimulatedPlatform().install(), HasSubstr("already runs on another platform"));
}

TEST_F(ContextManager, StartWithoutABeaconTypeIsStartedAndSearchesNothing) {
  Class::startLeScan();
  simulated.advance(seconds(1));
  EXPECT_TRUE(Class::isLeScan());
  EXPECT_FALSE(simulated.radio().isScanning());
  EXPECT_TRUE(manager().locationManager().monitoredRegions().empty());
}

TEST(ExportedConstants, HaveTheirExactContents) {
  EXPECT_EQ(NearestBeaconSensorFindingBuffer, 2);
  EXPECT_EQ(BrenloftSDKVersionNumber, 1.0);
  const std::string version = "@(#)PROGRAM:BrenloftSDK  PROJECT:BrenloftSDK-1\n";
  EXPECT_EQ(std::memcmp(BrenloftSDKVersionString, version.c_str(), version.size() + 1), 0);
}

}  // namespace
