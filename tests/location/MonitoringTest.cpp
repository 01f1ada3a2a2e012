#include "LocationFixture.h"

namespace {

class Monitoring : public BeaconLocationTest {};

TEST_F(Monitoring, ARegionIsUnknownUntilThirtySecondsOfSilenceMakeItOutside) {
  monitor(region);
  EXPECT_EQ(listener.take(), Lines{"started R"});
  simulated.advance(seconds(30) - milliseconds(1));
  EXPECT_EQ(stateOf(region), Lines{"unknown R"});
  EXPECT_EQ(after(milliseconds(1)), Lines{"outside R"});
  EXPECT_EQ(stateOf(region), Lines{"outside R"});
}

TEST_F(Monitoring, TheFirstStateIsAStateAndEachLaterOneACrossing) {
  monitor(region);
  hear(kUUID, 1, 2);
  EXPECT_EQ(hearing(kUUID, 1, 2), (Lines{"started R", "inside R"}));
  EXPECT_EQ(after(seconds(30)), (Lines{"outside R", "exited R"}));
  EXPECT_EQ(hearing(kUUID, 7, 8), (Lines{"inside R", "entered R"}));
}

TEST_F(Monitoring, TheRegionIsLeftThirtySecondsAfterItsLastBeaconWasHeard) {
  monitor(region);
  hear(kUUID, 1, 1);
  simulated.advance(seconds(10));
  hear(kUUID, 1, 2);
  simulated.advance(seconds(19));
  hear(kUUID, 1, 1);
  listener.take();
  EXPECT_EQ(after(seconds(30) - milliseconds(1)), Lines{});
  EXPECT_EQ(after(milliseconds(1)), (Lines{"outside R", "exited R"}));
}

TEST_F(Monitoring, MajorAndMinorOfARegionDecideWhichFramesMatch) {
  monitor(beaconRegion("major", kUUID, 5));
  monitor(beaconRegion("both", kUUID, 5, 6));
  monitor(beaconRegion("other", kOtherUUID));
  listener.take();
  EXPECT_EQ(hearing(kUUID, 4, 6), Lines{});
  EXPECT_EQ(hearing(kUUID, 5, 7), Lines{"inside major"});
  EXPECT_EQ(hearing(kUUID, 5, 6), Lines{"inside both"});
  EXPECT_EQ(hearing(kOtherUUID, 5, 6), Lines{"inside other"});
}

TEST_F(Monitoring, ACrossingThatARegionDoesNotAskForIsNotReportedButKnown) {
  region->setNotifyOnEntry(false);
  monitor(region);
  simulated.advance(seconds(30));
  listener.take();
  EXPECT_EQ(hearing(kUUID, 1, 1), Lines{});
  EXPECT_EQ(stateOf(region), Lines{"inside R"});
  EXPECT_EQ(after(seconds(30)), (Lines{"outside R", "exited R"}));
}

TEST_F(Monitoring, ARegionStartedWhileItsBeaconIsKnownIsInsideAtOnce) {
  monitor(region);
  hear(kUUID, 1, 1);
  listener.take();
  monitor(beaconRegion("second", kUUID, 1));
  EXPECT_EQ(listener.take(), (Lines{"started second", "inside second"}));
}

TEST_F(Monitoring, TheTwentyFirstRegionFailsUnlessItReplacesOne) {
  for (int i = 0; i < 20; ++i) monitor(beaconRegion("R" + std::to_string(i), kUUID, i));
  listener.take();
  monitor(beaconRegion("R20", kUUID, 20));
  EXPECT_EQ(listener.take(), Lines{"failed R20 5"});
  EXPECT_EQ(manager->monitoredRegions().size(), 20U);
  monitor(beaconRegion("R7", kOtherUUID));
  EXPECT_EQ(listener.take(), Lines{"started R7"});
  manager->stopMonitoringForRegion(beaconRegion("R3", kUUID));
  monitor(beaconRegion("R20", kUUID, 20));
  EXPECT_EQ(listener.take(), Lines{"started R20"});
}

TEST_F(Monitoring, ARegionOfTheSameIdentifierReplacesTheEarlierOne) {
  monitor(region);
  const auto replacement = beaconRegion("R", kOtherUUID);
  hear(kUUID, 1, 1);
  monitor(replacement);
  EXPECT_EQ(manager->monitoredRegions(), std::vector<CLRegionPtr>{replacement});
  EXPECT_EQ(stateOf(replacement), Lines{"unknown R"});
  EXPECT_EQ(hearing(kUUID, 1, 1), Lines{});
  EXPECT_EQ(hearing(kOtherUUID, 1, 1), Lines{"inside R"});
}

TEST_F(Monitoring, ABeaconThatIsOnlyRangedMakesARegionInsideNoLonger) {
  manager->startRangingBeaconsInRegion(beaconRegion("ranging", kUUID));
  simulated.advance({});
  hear(kUUID, 1, 1);
  simulated.advance(seconds(15));
  hear(kUUID, 1, 1);
  simulated.advance(seconds(30) - milliseconds(1));
  EXPECT_EQ(stateOf(region), Lines{"inside R"});
  simulated.advance(milliseconds(1));
  EXPECT_EQ(stateOf(region), Lines{"outside R"});
  simulated.radio().setState(platform::CBManagerState::poweredOff);
  simulated.radio().setState(platform::CBManagerState::poweredOn);
  simulated.advance({});
  EXPECT_EQ(stateOf(region), Lines{"unknown R"});
}

TEST_F(Monitoring, ARegionThatIsNoBeaconRegionIsMonitoredAndStaysUnknown) {
  const auto plain = std::make_shared<platform::CLRegion>("place");
  monitor(plain);
  EXPECT_EQ(after(seconds(60)), Lines{"started place"});
  EXPECT_EQ(stateOf(plain), Lines{"unknown place"});
}

TEST_F(Monitoring, NothingIsReportedOfARegionThatIsNoLongerMonitored) {
  monitor(region);
  listener.take();
  simulated.radio().advertise(platform::iBeaconAdvertisement({}, {kUUID, 1, 1}));
  manager->stopMonitoringForRegion(region);
  EXPECT_EQ(after(seconds(60)), Lines{});
  EXPECT_TRUE(manager->monitoredRegions().empty());

  manager->startMonitoringForRegion(region);
  manager->requestStateForRegion(region);
  manager->stopMonitoringForRegion(region);
  EXPECT_EQ(after({}), Lines{});
  EXPECT_EQ(stateOf(region), Lines{"unknown R"}) << "who asks about any other region is answered";
}

TEST_F(Monitoring, TheRadioScansOnlyWhileSomethingIsMonitoredOrRanged) {
  EXPECT_FALSE(simulated.radio().isScanning());
  monitor(region);
  manager->startRangingBeaconsInRegion(region);
  manager->stopMonitoringForRegion(region);
  simulated.advance({});
  EXPECT_TRUE(simulated.radio().isScanning());
  manager->stopRangingBeaconsInRegion(region);
  simulated.advance({});
  EXPECT_FALSE(simulated.radio().isScanning());
}

TEST_F(Monitoring, ARadioThatIsAwayChangesNoStateAndItsSilenceCountsFromItsReturn) {
  monitor(region);
  hear(kUUID, 1, 1);
  listener.take();
  simulated.radio().setState(platform::CBManagerState::resetting);
  simulated.advance(seconds(100));
  EXPECT_EQ(stateOf(region), Lines{"inside R"});
  simulated.radio().setState(platform::CBManagerState::poweredOn);
  EXPECT_EQ(after(seconds(30) - milliseconds(1)), Lines{});
  EXPECT_EQ(after(milliseconds(1)), (Lines{"outside R", "exited R"}));
}

TEST_F(Monitoring, ARadioThatWentAndCameBackAtOnceIsListenedToAgain) {
  monitor(region);
  simulated.radio().setState(platform::CBManagerState::poweredOff);
  simulated.radio().setState(platform::CBManagerState::poweredOn);
  simulated.advance({});
  listener.take();
  EXPECT_EQ(hearing(kUUID, 1, 1), Lines{"inside R"});
}

// The radio is on already when the service's central is made, whose first state report then comes late.
TEST_F(Monitoring, AStopBeforeTheFirstStateReportOfTheRadioEndsTheScan) {
  CentralListener nobody;
  const auto other = simulated.services().bluetooth->makeCentralManager(nobody, nullptr);
  simulated.advance({});
  listener.onLine = [&] {
    if (listener.lines.back() == "unknown R") manager->stopMonitoringForRegion(region);
  };
  manager->startMonitoringForRegion(region);
  manager->requestStateForRegion(region);
  EXPECT_EQ(after({}), (Lines{"started R", "unknown R"}));
  EXPECT_FALSE(simulated.radio().isScanning());
}

TEST_F(Monitoring, ADelegateReplacedByAStateGetsNoCrossing) {
  LocationListener second;
  monitor(region);
  hear(kUUID, 1, 1);
  listener.take();
  listener.onLine = [&] { manager->setDelegate(&second); };
  EXPECT_EQ(after(seconds(30)), Lines{"outside R"});
  EXPECT_EQ(second.take(), Lines{"exited R"});
}

TEST_F(Monitoring, CrossingsReachEveryManagerAndAnswersTheOneThatAsked) {
  LocationListener second;
  const auto other = makeManager(second);
  monitor(region);
  EXPECT_EQ(hearing(kUUID, 1, 1), (Lines{"started R", "inside R"}));
  EXPECT_EQ(second.take(), (Lines{"authorization 3", "inside R"}));
  EXPECT_EQ(stateOf(region), Lines{"inside R"});
  EXPECT_EQ(second.take(), Lines{});
  EXPECT_EQ(other->monitoredRegions(), std::vector<CLRegionPtr>{region});
}

TEST_F(Monitoring, ADestroyedManagerHearsNothingMoreAndItsRegionsStay) {
  monitor(region);
  listener.take();
  manager->requestStateForRegion(region);
  simulated.radio().advertise(platform::iBeaconAdvertisement({}, {kUUID, 1, 1}));
  manager.reset();
  EXPECT_EQ(after(seconds(60)), Lines{});
  manager = makeManager(listener);
  EXPECT_EQ(manager->monitoredRegions(), std::vector<CLRegionPtr>{region});
}

TEST_F(Monitoring, AManagerCanBeDestroyedFromItsOwnCallback) {
  manager->startRangingBeaconsInRegion(region);
  listener.onLine = [&] { manager.reset(); };
  monitor(region);
  EXPECT_EQ(after(seconds(5)), Lines{"started R"});
}

TEST_F(Monitoring, DescriptionsNameWhatARegionIsMadeOf) {
  EXPECT_EQ(platform::CLRegion("X").description(), "CLRegion (identifier:'X')");
  EXPECT_EQ(beaconRegion("X", kUUID)->description(),
            "CLBeaconRegion (identifier:'X', uuid:0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9, major:(null), "
            "minor:(null))");
  EXPECT_EQ(
      beaconRegion("X", kUUID, 65535, 0)->description(),
      "CLBeaconRegion (identifier:'X', uuid:0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9, major:65535, minor:0)");
}

TEST(IBeaconFrame, IsBuiltAsItIsReadAndToldFromOtherManufacturerData) {
  const platform::iBeaconFrame whole{kUUID, 0x0102, 0xFFFE, -59};
  struct {
    const char* what;
    const char* hex;
    bool isFrame;
  } const cases[] = {{"whole", "4c0002150a1b2c3d4e5f406182738495a6b7c8d90102fffec5", true},
                     {"longer", "4c0002150a1b2c3d4e5f406182738495a6b7c8d90102fffec500", true},
                     {"no power", "4c0002150a1b2c3d4e5f406182738495a6b7c8d90102fffe", false},
                     {"swapped company", "004c02150a1b2c3d4e5f406182738495a6b7c8d90102fffec5", false},
                     {"other type", "4c0010150a1b2c3d4e5f406182738495a6b7c8d90102fffec5", false},
                     {"other length", "4c0002140a1b2c3d4e5f406182738495a6b7c8d90102fffec5", false},
                     {"empty", "", false}};
  for (const auto& [what, hex, isFrame] : cases) {
    const auto frame = platform::parseIBeaconFrame(platform::octetsFromHex(hex).value());
    EXPECT_EQ(frame.has_value(), isFrame) << what;
    EXPECT_TRUE(!frame || *frame == whole) << what;
  }
  EXPECT_EQ(platform::hexText(platform::iBeaconManufacturerData(whole)), cases[0].hex);
}

}  // namespace
