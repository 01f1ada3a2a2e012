#include "LocationFixture.h"

namespace {

class Ranging : public BeaconLocationTest {
 protected:
  void startRanging(const platform::CLBeaconRegionPtr& of) {
    manager->startRangingBeaconsInRegion(of);
    simulated.advance({});
  }
};

TEST_F(Ranging, GivesTheMeanOfEachSecondNearestFirstAndWhatWasNotMeasuredLast) {
  startRanging(region);
  hear(kUUID, 1, 1, -70);
  hear(kUUID, 1, 1, -73);
  hear(kUUID, 1, 2, -50);
  hear(kUUID, 1, 3, platform::AdvertisingReport::kNoRssi);
  hear(kUUID, 1, 4, -90);
  hear(kUUID, 1, 4, platform::AdvertisingReport::kNoRssi);
  hear(kOtherUUID, 1, 5, -40);
  hear(kUUID, 1, 6, -80, -77);
  hear(kUUID, 1, 7, 0, 20);
  EXPECT_EQ(after(seconds(1)), Lines{"ranged R: 1/2=-50 1/6=-80 1/1=-72 1/7=0 1/4=-90 1/3=0"});
  simulated.advance(seconds(10));
  hear(kUUID, 1, 2, platform::AdvertisingReport::kNoRssi);
  hear(kUUID, 1, 3, platform::AdvertisingReport::kNoRssi);
  hear(kUUID, 1, 4, platform::AdvertisingReport::kNoRssi);
  hear(kUUID, 1, 1, -60);
  listener.take();
  EXPECT_EQ(after(seconds(1)), Lines{"ranged R: 1/1=-60 1/2=0 1/3=0 1/4=0"});
}

TEST_F(Ranging, LeavesOutABeaconThatWasNotHeardForTenSeconds) {
  startRanging(region);
  simulated.advance(milliseconds(500));
  hear(kUUID, 1, 1, -70);
  simulated.advance(seconds(10));
  const Lines lines = listener.take();
  ASSERT_EQ(lines.size(), 10U);
  EXPECT_EQ(lines.front(), "ranged R: 1/1=-70");
  EXPECT_EQ(lines.back(), "ranged R: 1/1=0");
  EXPECT_EQ(after(seconds(1)), Lines{"ranged R:"});
}

TEST_F(Ranging, AFirstReportTellsOnlyOfItsOwnSecond) {
  manager->startMonitoringForRegion(region);
  simulated.advance({});
  hear(kUUID, 1, 1, -40);
  startRanging(region);
  hear(kUUID, 1, 1, -80);
  listener.take();
  EXPECT_EQ(after(seconds(1)), Lines{"ranged R: 1/1=-80"});
}

TEST_F(Ranging, OneIdentifierAndUUIDIsOneRangingAndStoppingEndsAllOfAnIdentifier) {
  startRanging(region);
  startRanging(beaconRegion("R", kUUID, 2));
  startRanging(beaconRegion("R", kOtherUUID));
  hear(kUUID, 1, 1);
  hear(kUUID, 2, 1);
  hear(kOtherUUID, 3, 1);
  EXPECT_EQ(after(seconds(1)), (Lines{"ranged R: 2/1=-60", "ranged R: 3/1=-60"}));
  manager->stopRangingBeaconsInRegion(region);
  EXPECT_EQ(after(seconds(3)), Lines{});
  EXPECT_FALSE(simulated.radio().isScanning());

  startRanging(beaconRegion("other", kUUID));
  manager->stopRangingBeaconsInRegion(region);
  EXPECT_EQ(after(seconds(3)), Lines{}) << "and all of the UUID";
}

TEST_F(Ranging, StartedAnewKeepsAReportThatIsOnItsWay) {
  monitor(region);
  startRanging(beaconRegion("ranging", kUUID));
  listener.onLine = [&] {
    if (listener.lines.back() == "outside R")
      manager->startRangingBeaconsInRegion(beaconRegion("ranging", kUUID));
  };
  simulated.advance(seconds(29));
  listener.take();
  EXPECT_EQ(after(seconds(1)), (Lines{"outside R", "ranged ranging:"}));
}

TEST_F(Ranging, ReportsReachTheManagerThatRangesAndEndWithIt) {
  LocationListener second;
  auto other = makeManager(second);
  other->startRangingBeaconsInRegion(region);
  EXPECT_EQ(after(seconds(1)), Lines{});
  EXPECT_EQ(second.take(), (Lines{"authorization 3", "ranged R:"}));
  other.reset();
  simulated.advance(seconds(2));
  EXPECT_EQ(second.take(), Lines{});
  EXPECT_FALSE(simulated.radio().isScanning());
}

TEST_F(Ranging, SecondsInWhichTheQueuesStoodStillAreNotMadeUpFor) {
  startRanging(region);
  simulated.clock().skip(seconds(5) + milliseconds(500));
  EXPECT_EQ(after({}), Lines{"ranged R:"});
  EXPECT_EQ(after(milliseconds(500)), Lines{"ranged R:"});
}

class Authorization : public BeaconLocationTest {};

TEST_F(Authorization, WithdrawnSilencesEverythingAndGivenBackStartsFromUnknown) {
  monitor(region);
  manager->startRangingBeaconsInRegion(region);
  hear(kUUID, 1, 1);
  listener.take();
  manager->requestStateForRegion(region);
  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::denied);
  hear(kUUID, 1, 1);
  manager->requestStateForRegion(region);
  EXPECT_EQ(after(seconds(60)), Lines{"authorization 2"});
  EXPECT_FALSE(simulated.radio().isScanning());
  EXPECT_EQ(manager->monitoredRegions().size(), 1U);

  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::authorizedWhenInUse);
  manager->requestStateForRegion(region);
  EXPECT_EQ(after({}), (Lines{"authorization 4", "unknown R"}));
  hear(kUUID, 1, 1);
  EXPECT_EQ(after(seconds(1)), (Lines{"inside R", "ranged R: 1/1=-60"}));
}

TEST_F(Authorization, WithdrawnAndGivenBackBetweenTwoEventsIsToldInOrder) {
  monitor(region);
  listener.take();
  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::denied);
  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::authorizedAlways);
  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::authorizedAlways);
  EXPECT_EQ(after({}), (Lines{"authorization 2", "authorization 3"}));
  EXPECT_EQ(hearing(kUUID, 1, 1), Lines{"inside R"});
}

TEST_F(Authorization, WithdrawnAndGivenBackAroundAReportLosesThatReportOnly) {
  const auto become = [&](CLAuthorizationStatus status) {
    simulated.services().dispatch->after(
        seconds(1), simulated.services().dispatch->mainQueue(),
        [this, status] { simulated.beaconLocation().setAuthorizationStatus(status); });
  };
  become(CLAuthorizationStatus::denied);
  manager->startRangingBeaconsInRegion(region);
  simulated.advance({});
  become(CLAuthorizationStatus::authorizedAlways);
  EXPECT_EQ(after(seconds(1)), (Lines{"authorization 2", "authorization 3"}));
  EXPECT_EQ(after(seconds(2)), (Lines{"ranged R:", "ranged R:"}));
}

TEST_F(Authorization, SwitchedOffLocationServicesHearNothing) {
  monitor(region);
  simulated.beaconLocation().setLocationServicesEnabled(false);
  hear(kUUID, 1, 1);
  EXPECT_FALSE(simulated.services().location->locationServicesEnabled());
  EXPECT_FALSE(simulated.radio().isScanning());
  listener.take();
  simulated.beaconLocation().setLocationServicesEnabled(true);
  simulated.advance({});
  EXPECT_EQ(hearing(kUUID, 1, 1), Lines{"inside R"});
}

class UndecidedUser : public BeaconLocationTest {
 protected:
  explicit UndecidedUser(
      std::optional<CLAuthorizationStatus> answer = CLAuthorizationStatus::authorizedAlways)
      : BeaconLocationTest(
            {.authorization = CLAuthorizationStatus::notDetermined, .answerToRequest = answer}) {}
};

TEST_F(UndecidedUser, GrantsWhenAskedAndIsNotAskedAgain) {
  EXPECT_TRUE(manager->respondsToRequestAlwaysAuthorization());
  manager->requestAlwaysAuthorization();
  EXPECT_EQ(listener.take(), Lines{});
  EXPECT_EQ(after({}), Lines{"authorization 3"});
  simulated.beaconLocation().setAuthorizationStatus(CLAuthorizationStatus::denied);
  manager->startMonitoringSignificantLocationChanges();
  EXPECT_EQ(after({}), Lines{"authorization 2"});
}

class SilentUser : public UndecidedUser {
 protected:
  SilentUser() : UndecidedUser(std::nullopt) {}
};

TEST_F(SilentUser, LeavesTheQuestionOpen) {
  manager->requestAlwaysAuthorization();
  monitor(region);
  EXPECT_EQ(after(seconds(40)), Lines{});
  EXPECT_EQ(simulated.services().location->authorizationStatus(), CLAuthorizationStatus::notDetermined);
}

TEST(StoredAuthorization, IsHandedOutAfterEveryChangeAndOnlyThen) {
  platform::SimulatedPlatform simulated;
  std::vector<CLAuthorizationStatus> stored;
  const auto service = platform::makeBeaconLocationService(
      {.bluetooth = simulated.services().bluetooth,
       .dispatch = simulated.services().dispatch,
       .authorization = CLAuthorizationStatus::notDetermined,
       .storeAuthorization = [&](CLAuthorizationStatus status) { stored.push_back(status); }});
  service->setAuthorizationStatus(CLAuthorizationStatus::notDetermined);
  service->makeLocationManager()->requestAlwaysAuthorization();
  service->setAuthorizationStatus(CLAuthorizationStatus::restricted);
  EXPECT_EQ(stored,
            (std::vector{CLAuthorizationStatus::authorizedAlways, CLAuthorizationStatus::restricted}));
}

}  // namespace
