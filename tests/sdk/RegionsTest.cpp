#include <gmock/gmock.h>

#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::CLAuthorizationStatus;
using platform::CLBeaconRegion;
using platform::CLRegion;
using platform::CLRegionState;
using platform::NSUUID;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kUUID = "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0";
const NSUUID uuid = *NSUUID::initWithUUIDString(kUUID);

class Regions : public ManagerTest {
 protected:
  Regions() : ManagerTest({.location = SimulatedPlatformOptions::Location::scripted}) {
    manager().setBeaconUUID(kUUID);
    manager().setDelegate(&listener);
    simulated.advance({});
    simulated.log().clear();
  }

  platform::ScriptedLocationService& location() { return simulated.scriptedLocation(); }

  // The regions that were submitted since the last call, as "major/minor".
  Lines submitted() {
    Lines texts;
    for (const auto& operation : location().operations()) {
      if (operation.name != "startMonitoringForRegion:") continue;
      const auto region = std::dynamic_pointer_cast<const CLBeaconRegion>(operation.region);
      EXPECT_EQ(region->identifier(), "BrenloftBeaconGroup");
      EXPECT_TRUE(region->notifyOnEntry() && region->notifyOnExit() && !region->notifyEntryStateOnDisplay());
      const auto text = [](auto number) { return number ? std::to_string(*number) : std::string("*"); };
      texts.push_back(text(region->major()) + "/" + text(region->minor()));
    }
    location().clearOperations();
    return texts;
  }

  // What is asked for when a region's state is determined.
  Lines determined(CLRegionState state, const platform::CLRegionPtr& region) {
    location().clearOperations();
    location().determinedState(state, region);
    simulated.advance({});
    return location().operationNames();
  }

  void makePresentRecord() {
    manager().setBeaconGroupType(2);
    location().ranged({{uuid, 1, static_cast<uint16_t>(++minor_), -60}}, nullptr);
    simulated.advance({});
    listener.take();
  }

 private:
  int minor_ = 0;
};

TEST_F(Regions, GroupTypeDecidesWhatIsSubmitted) {
  struct Row {
    int64_t group;
    Lines expected;
  };
  manager().setBeaconMajor(65537);
  manager().setBeaconMinor(2);
  const Row rows[] = {{0, {"*/*"}}, {1, {"1/*", "1/2"}}, {2, {"1/2"}}, {3, {}}, {-1, {}}};
  for (const Row& row : rows) {
    location().setMonitoredRegions({});
    manager().setBeaconGroupType(row.group);
    manager().updateMonitoring();
    EXPECT_EQ(submitted(), row.expected) << row.group;
  }
  EXPECT_THAT(simulated.log().lines(), IsEmpty());
}

TEST_F(Regions, DuplicatesAreFoundByContainmentAndWholeNumbers) {
  const auto region = [](auto... numbers) {
    return std::make_shared<CLBeaconRegion>(uuid, numbers..., "host");
  };
  struct Row {
    const char* name;
    const char* configured;
    int64_t group;
    int64_t major;
    std::vector<platform::CLRegionPtr> monitored;
    size_t added;
  };
  const uint16_t one = 1;
  const uint16_t two = 2;
  const Row rows[] = {
      {"any region of the UUID", kUUID, 0, 1, {region(one, two)}, 0},
      {"in lower case", "e2c56db5-dffb-48d2-b060-d0f5a71096e0", 0, 1, {region()}, 0},
      {"a region without a UUID", kUUID, 0, 1, {std::make_shared<CLRegion>("place")}, 1},
      {"a major", kUUID, 1, 1, {region(one)}, 1},
      {"another minor", kUUID, 2, 1, {region(one, two)}, 1},
      {"the same minor", kUUID, 2, 1, {region(one, uint16_t{0})}, 0},
      {"a major beyond 16 bits never matches", kUUID, 2, 65537, {region(one, uint16_t{0})}, 1},
  };
  for (const Row& row : rows) {
    location().setMonitoredRegions(row.monitored);
    manager().setBeaconUUID(row.configured);
    manager().setBeaconGroupType(row.group);
    manager().setBeaconMajor(row.major);
    manager().updateMonitoring();
    EXPECT_EQ(submitted().size(), row.added) << row.name;
  }
}

TEST_F(Regions, AMissingOrWrongUUIDIsLoggedAndNothingSubmitted) {
  manager().setBeaconUUID(std::nullopt);
  manager().updateMonitoring();
  manager().setBeaconUUID("FFF0");
  manager().updateMonitoring();
  EXPECT_THAT(simulated.log().lines(), ElementsAre("UUID가 등록되지 않아 센서를 모니터링 할 수 없습니다.",
                                                   "데이터 오류 UUID가 올바른지 확인해주십시오\n UUID:FFF0"));
  EXPECT_THAT(submitted(), IsEmpty());
}

TEST_F(Regions, TheGateLogsItsSentenceAndActsOnTheAuthorization) {
  struct Row {
    CLAuthorizationStatus status;
    Lines log;
    Lines operations;
  };
  const Row rows[] = {
      {CLAuthorizationStatus::authorizedWhenInUse,
       {"되었습니다.", "모니터링 중인 Region 개수:(1)"},
       {"startMonitoringForRegion:"}},
      {CLAuthorizationStatus::notDetermined,
       {"여부를 아직 확인하지 않았습니다."},
       {"requestAlwaysAuthorization"}},
      {CLAuthorizationStatus::denied, {"가 거부되었습니다."}, {}},
      {CLAuthorizationStatus::restricted, {"예외상황"}, {}},
  };
  for (const Row& row : rows) {
    location().setMonitoredRegions({});
    location().setAuthorizationStatus(row.status);
    location().clearOperations();
    simulated.log().clear();
    manager().BeaconStart();
    Lines expected{"위치서비스가 불가능합니다.", "로케이션 서비스 허가"};
    expected.insert(expected.end(), row.log.begin(), row.log.end());
    EXPECT_EQ(simulated.log().lines(), expected);
    EXPECT_EQ(location().operationNames(), row.operations);
  }
}

TEST_F(Regions, WithServicesOffTheFirstLineIsMissingAndAnOldManagerWatchesPlaces) {
  location().setLocationServicesEnabled(false);
  location().setAuthorizationStatus(CLAuthorizationStatus::notDetermined);
  location().setRespondsToRequestAlwaysAuthorization(false);
  location().clearOperations();
  manager().BeaconStart();
  EXPECT_EQ(simulated.log().lines().front(), "로케이션 서비스 허가");
  EXPECT_THAT(location().operationNames(), ElementsAre("startMonitoringSignificantLocationChanges"));
}

TEST_F(Regions, AuthorizationChangesResumeAStartedBeaconSearchOnly) {
  const auto host = std::make_shared<CLRegion>("host");
  const auto operationsAfter = [&](CLAuthorizationStatus status, uint64_t type, bool started) {
    location().setMonitoredRegions({host});
    manager().setBeaconType(type);
    manager().setIsStart(started);
    location().clearOperations();
    simulated.log().clear();
    location().changeAuthorization(status);
    simulated.advance({});
    return location().operationNames();
  };
  const auto always = CLAuthorizationStatus::authorizedAlways;
  EXPECT_THAT(operationsAfter(always, 2, true),
              ElementsAre("requestStateForRegion:", "startMonitoringForRegion:"));
  EXPECT_THAT(operationsAfter(always, 2, false), ElementsAre("requestStateForRegion:"));
  EXPECT_THAT(operationsAfter(always, 1, true), ElementsAre("requestStateForRegion:"));
  EXPECT_THAT(operationsAfter(CLAuthorizationStatus::authorizedWhenInUse, 2, true), IsEmpty());
  EXPECT_THAT(simulated.log().lines(),
              ElementsAre("위치정보 허가상태가 변경되었습니다.4",
                          "로케이션 서비스가 중지되었습니다. 유저 권한 문제일 가능성이 높습니다"));
}

TEST_F(Regions, MonitoringThatStartedAsksForTheState) {
  const auto region = std::make_shared<CLBeaconRegion>(uuid, "BrenloftBeaconGroup");
  location().setMonitoredRegions({region});
  location().clearOperations();
  location().startedMonitoring(region);
  simulated.advance({});
  EXPECT_THAT(location().operationNames(), ElementsAre("requestStateForRegion:"));
  EXPECT_THAT(simulated.log().lines(), ElementsAre("didStartMonitoringForRegion:1:" + region->description()));
}

TEST_F(Regions, EveryStateOfABeaconRegionStartsRangingOfItsWholeUUID) {
  const auto region = std::make_shared<CLBeaconRegion>(uuid, uint16_t{1}, uint16_t{2}, "host");
  for (const auto state : {CLRegionState::unknown, CLRegionState::inside, CLRegionState::outside}) {
    ASSERT_THAT(determined(state, region), ElementsAre("startRangingBeaconsInRegion:"));
    const auto ranged = std::dynamic_pointer_cast<const CLBeaconRegion>(location().operations()[0].region);
    EXPECT_EQ(ranged->identifier(), "BrenloftBeaconGroup");
    EXPECT_EQ(ranged->major(), std::nullopt);
  }
  EXPECT_EQ(simulated.log().lines().back(),
            "-[BRLContextManager locationManager:didDetermineState:forRegion:]:host:2");
  EXPECT_THAT(determined(CLRegionState::inside, std::make_shared<CLRegion>("place")), IsEmpty());
}

TEST_F(Regions, LeavingMarksEveryPresentRecordAndLogsOnlyWhatTheDelegateHeard) {
  manager().setIsLogSave(true);
  makePresentRecord();
  makePresentRecord();
  const auto region = std::make_shared<CLBeaconRegion>(uuid, "BrenloftBeaconGroup");
  determined(CLRegionState::outside, region);
  EXPECT_THAT(listener.take(), ElementsAre("beacon " + std::string(kUUID) + "/1/1 2",
                                           "beacon " + std::string(kUUID) + "/1/2 2"));
  EXPECT_EQ(loggedRows(), 4U);  // two appearances, two exits

  makePresentRecord();
  EXPECT_EQ(loggedRows(), 5U);
  BRLDelegateHandlers bytesOnly;
  bytesOnly.didByteArray = [](BRLContextManager&, const auto&) {};
  manager().setDelegate(&bytesOnly);
  determined(CLRegionState::outside, region);
  EXPECT_EQ(record(2).status(), 2);
  EXPECT_EQ(loggedRows(), 5U);
}

TEST_F(Regions, TheSafetyRegionsStateIsKeptAndItsExitRenewsTheRegions) {
  makePresentRecord();
  manager().setBeaconGroupType(0);
  const auto safety = std::make_shared<CLBeaconRegion>(uuid, SAFETY_REGION_IDENTIFIER);
  EXPECT_THAT(determined(CLRegionState::outside, safety), ElementsAre("startMonitoringForRegion:"));
  EXPECT_EQ(record(0).status(), 1);
  EXPECT_THAT(determined(CLRegionState::inside, std::make_shared<CLRegion>(SAFETY_REGION_IDENTIFIER)),
              IsEmpty());
  const auto stored = simulated.services().userDefaults->objectForKey(SAFETY_REGION_IDENTIFIER);
  EXPECT_EQ(std::get<platform::NSNumber>(*stored).integerValue(), 1);
}

TEST_F(Regions, FailuresAreLoggedWithWhatIsMonitored) {
  const auto failed = std::make_shared<CLBeaconRegion>(uuid, "failed");
  const auto other = std::make_shared<CLRegion>("other");
  location().setMonitoredRegions({other});
  location().monitoringFailed(failed, {5, "too many"});
  location().failed({0, "no fix"});
  simulated.advance({});
  EXPECT_THAT(simulated.log().lines(),
              ElementsAre("monitoringDidFailForRegion:" + failed->description() + ":too many",
                          "monitored Region:" + other->description(), "end.",
                          "-[BRLContextManager locationManager:didFailWithError:]"));
}

TEST_F(Regions, StopEndsRangingOfAllRegionsBeforeMonitoringOfAny) {
  location().setMonitoredRegions({std::make_shared<CLRegion>("a"), std::make_shared<CLRegion>("b")});
  location().clearOperations();
  manager().stop();
  EXPECT_THAT(location().operationNames(),
              ElementsAre("stopRangingBeaconsInRegion:", "stopRangingBeaconsInRegion:",
                          "stopMonitoringForRegion:", "stopMonitoringForRegion:"));
}

}  // namespace
