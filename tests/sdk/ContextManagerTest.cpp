#include <cstring>

#include <gmock/gmock.h>

#include "platform/foundation/NSUserDefaults.h"
#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::NSNumber;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using Class = BRLContextManager::Class;

// Settings in memory that write down what is done to them.
class RecordingUserDefaults final : public platform::NSUserDefaults {
 public:
  std::optional<platform::Value> objectForKey(std::string_view key) const override {
    return values_->objectForKey(key);
  }
  void setObject_forKey(platform::Value value, std::string_view key) override {
    operations_.push_back("set " + std::string(key));
    values_->setObject_forKey(std::move(value), key);
  }
  void removeObjectForKey(std::string_view key) override { values_->removeObjectForKey(key); }
  bool synchronize() override {
    operations_.emplace_back("synchronize");
    return values_->synchronize();
  }

  /// What was done since the last time.
  Lines take() { return std::exchange(operations_, {}); }

 private:
  const std::shared_ptr<platform::NSUserDefaults> values_ = platform::makeInMemoryUserDefaults();
  Lines operations_;
};

class ContextManager : public ManagerTest {
 protected:
  ContextManager() {
    simulated.services().userDefaults = defaults;
    simulated.install();
  }

  const std::shared_ptr<RecordingUserDefaults> defaults = std::make_shared<RecordingUserDefaults>();
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

TEST_F(ContextManager, APlainDataManagerAskedFirstStaysTheSharedInstanceAndEndsOnForeignOperations) {
  BRLDataManager* plain = BRLDataManager::Class::shareInstance();
  EXPECT_EQ(Class::shareInstance(), plain);
  EXPECT_EQ(dynamic_cast<BRLContextManager*>(plain), nullptr);
  Class::setBeaconTagWithData_key(platform::Data(3), "key");  // the base class has this one
  platform::Platform loud = simulated.services();
  loud.log = [](std::string_view text) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  };
  platform::Platform::install(loud);
  const std::string rest = ": unrecognized selector sent to the shared instance\n";
  EXPECT_DEATH(Class::startLeScan(), Eq("-[BRLDataManager start]" + rest));
  EXPECT_DEATH(Class::setBeaconType(1), Eq("-[BRLDataManager setBeaconType:]" + rest));
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
