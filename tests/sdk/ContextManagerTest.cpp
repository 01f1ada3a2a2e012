#include <cstring>

#include <gmock/gmock.h>

#include "tests/sdk/ManagerFixture.h"
#include "tests/sdk/RecordingUserDefaults.h"

namespace {

using platform::CBManagerState;
using platform::NSNumber;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using Class = BRLContextManager::Class;

class ContextManager : public ManagerTest {
 protected:
  ContextManager() {
    simulated.services().userDefaults = recording_;
    simulated.install();
  }

  test::RecordingUserDefaults& defaults() { return *recording_; }
  std::optional<int64_t> storedInteger(const char* key) {
    const auto value = defaults().objectForKey(key);
    const auto* number = value ? std::get_if<NSNumber>(&*value) : nullptr;
    return number ? std::optional(number->integerValue()) : std::nullopt;
  }

 private:
  const std::shared_ptr<test::RecordingUserDefaults> recording_ =
      std::make_shared<test::RecordingUserDefaults>();
};

TEST_F(ContextManager, FreshInstallSeedsTheExitTimeAndTheSafetyRegion) {
  EXPECT_EQ(manager().beaconExitTime(), 5.0);
  EXPECT_EQ(defaults().doubleForKey("BeaconExitTime"), 5.0);
  EXPECT_EQ(storedInteger("SaftyRegionIdentifier"), 2);
  EXPECT_FALSE(manager().isStart());
  EXPECT_EQ(manager().beaconUUID(), std::nullopt);
}

TEST_F(ContextManager, TakesStoredConfigurationWritesTheExitTimeBackAndLeavesTheSafetyRegionsStateAlone) {
  defaults().setDouble_forKey(3.0, "BeaconExitTime");
  defaults().setObject_forKey(NSNumber(int64_t{1}), "SaftyRegionIdentifier");
  defaults().take();
  EXPECT_EQ(manager().beaconExitTime(), 3.0);
  EXPECT_THAT(defaults().take(), ElementsAre("set CoredataCreateOnce", "set BeaconExitTime", "synchronize"));
  EXPECT_EQ(defaults().doubleForKey("BeaconExitTime"), 3.0);
  EXPECT_EQ(storedInteger("SaftyRegionIdentifier"), 1);
}

TEST_F(ContextManager, InstanceSetterStoresWhateverChangedAndTheClassSetterRefusesZero) {
  manager().setBeaconExitTime(0.0);
  EXPECT_EQ(defaults().doubleForKey("BeaconExitTime"), 0.0);
  defaults().take();
  manager().setBeaconExitTime(0.0);
  EXPECT_THAT(defaults().take(), IsEmpty()) << "no change";

  Class::setBeaconExitTime(7.5);
  for (const double refused : {0.0, -1.0}) Class::setBeaconExitTime(refused);
  EXPECT_EQ(Class::getBeaconExitTime(), 7.5);
  EXPECT_EQ(defaults().doubleForKey("BeaconExitTime"), 7.5);
  const std::string refusal = "error - responseTimeInterval 는 0보다 커야 합니다.";
  const auto lines = simulated.log().lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), refusal), 2);
}

TEST_F(ContextManager, ConfigurationCallPutsTheMinorIntoTheMajor) {
  manager().setBeaconMinor(99);
  EXPECT_EQ(Class::brlWithProximityUUID_major_minor("FFF0", 1, 7), &manager());
  EXPECT_EQ(manager().beaconMajor(), 7);
  EXPECT_EQ(manager().beaconMinor(), 99);
  Class::brlWithProximityUUID_major("FFF1", 5);
  EXPECT_EQ(manager().beaconMajor(), 0);
  EXPECT_EQ(manager().beaconUUID(), "FFF1");
}

TEST_F(ContextManager, BothClassesShareOneObjectWhenTheContextManagerIsAskedFirst) {
  BRLDataManager* shared = Class::shareInstance();
  EXPECT_EQ(BRLDataManager::Class::shareInstance(), shared);
  EXPECT_EQ(shared, &manager());
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
  EXPECT_STREQ(SAFETY_REGION_IDENTIFIER, "SaftyRegionIdentifier");
  EXPECT_STREQ(kBeaconExitTime, "BeaconExitTime");
  EXPECT_STREQ(kBRLBeaconRegionID, "BrenloftBeaconGroup");
  EXPECT_EQ(BrenloftSDKVersionNumber, 1.0);
  const std::string version = "@(#)PROGRAM:BrenloftSDK  PROJECT:BrenloftSDK-1\n";
  EXPECT_EQ(std::memcmp(BrenloftSDKVersionString, version.c_str(), version.size() + 1), 0);
}

}  // namespace
