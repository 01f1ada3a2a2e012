#include <gmock/gmock.h>

#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::BluetoothAddress;
using platform::CBUUID;
using platform::CLBeacon;
using platform::NSUUID;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kUUID = "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0";
const NSUUID uuid = *NSUUID::initWithUUIDString(kUUID);

class Ranging : public ManagerTest {
 protected:
  Ranging() : ManagerTest({.location = SimulatedPlatformOptions::Location::scripted}) {
    manager().setDelegate(&listener);
    simulated.advance({});
  }

  void report(std::vector<CLBeacon> beacons) {
    simulated.scriptedLocation().ranged(std::move(beacons), nullptr);
    simulated.advance({});
  }

  static CLBeacon beacon(uint16_t major, uint16_t minor, int64_t rssi = -60) {
    return {uuid, major, minor, rssi};
  }
};

TEST_F(Ranging, WithTheUUIDAloneOneRecordStandsForEveryBeaconOfIt) {
  report({});
  EXPECT_THAT(listener.lines, IsEmpty());
  report({beacon(1, 1, -40), beacon(2, 2, -70)});
  EXPECT_THAT(listener.take(), ElementsAre("new " + kUUID + "/1/1 1", "ranged 1"));
  EXPECT_EQ(record(0).rssi(), -70);
}

TEST_F(Ranging, GroupTypesTellRecordsApart) {
  const std::vector<CLBeacon> beacons{beacon(1, 1), beacon(1, 2), beacon(2, 1)};
  manager().setBeaconGroupType(1);
  report(beacons);
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 2U);
  manager().setBeaconGroupType(2);
  report(beacons);
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 3U);
  manager().setBeaconGroupType(5);
  report(beacons);
  report(beacons);
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 9U);
}

TEST_F(Ranging, ANewRecordHasTheRangedFieldsAndNothingElse) {
  report({beacon(7, 65535, -55)});
  const BRLBeaconSnapshot record = manager().rangeBeaconSensors()[0]->snapshot();
  EXPECT_EQ(record.beaconType, 2U);
  EXPECT_EQ(record.beaconId, "iBeacon");
  EXPECT_EQ(record.major, 7);
  EXPECT_EQ(record.minor, 65535);
  EXPECT_EQ(record.rssi, -55);
  EXPECT_EQ(record.status, 1);
  EXPECT_EQ(record.temperature, std::nullopt);
  EXPECT_EQ(record.uniqueId, std::nullopt);
}

TEST_F(Ranging, AKnownPresentBeaconIsRefreshedSilentlyAlsoWithoutASignal) {
  report({beacon(1, 1)});
  listener.take();
  simulated.advance(seconds(100));
  report({beacon(1, 1, 0)});
  EXPECT_THAT(listener.take(), ElementsAre("ranged 1"));
  EXPECT_EQ(record(0).rssi(), 0);
  EXPECT_EQ(record(0).status(), 1);
  EXPECT_EQ(record(0).statusUpdatedDate(), simulated.clock().date());
}

TEST_F(Ranging, AReturnIsReportedOnceAndLoggedWhateverTheDelegate) {
  manager().setIsLogSave(true);
  manager().setDelegate(nullptr);
  report({beacon(1, 1)});
  EXPECT_EQ(loggedRows(), 1U);
  manager().rangeBeaconSensors()[0]->setStatusValue(2);
  report({beacon(1, 1)});
  EXPECT_EQ(loggedRows(), 2U);
  manager().setDelegate(&listener);
  manager().setIsLogSave(false);
  manager().rangeBeaconSensors()[0]->setStatusValue(0);
  report({beacon(1, 1), beacon(1, 1)});
  EXPECT_THAT(listener.take(), ElementsAre("beacon " + kUUID + "/1/1 1", "ranged 1"));
  EXPECT_EQ(loggedRows(), 2U);
}

TEST_F(Ranging, AGroupTypeChangedByTheDelegateCountsFromTheNextComparison) {
  manager().setBeaconGroupType(2);
  report({beacon(1, 1), beacon(2, 2)});
  for (const auto& record : manager().rangeBeaconSensors()) record->setStatusValue(2);
  BRLDelegateHandlers handlers;
  int calls = 0;
  handlers.forBeacon = [&](BRLContextManager& self, const auto&) {
    ++calls;
    self.setBeaconGroupType(0);
  };
  manager().setDelegate(&handlers);
  report({beacon(1, 1)});
  EXPECT_EQ(calls, 2) << "the second record stands for the beacon by its UUID alone";
}

TEST_F(Ranging, MatchesASensorRecordByItsExactText) {
  startSearch(1);
  hear(kUUID.c_str());  // a sensor beacon whose service UUID is the proximity UUID
  report({beacon(1, 1, -33)});
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 1U);
  EXPECT_EQ(record(0).rssi(), -33);
  EXPECT_EQ(record(0).beaconType(), 1U);
}

TEST_F(Ranging, TheLostCheckOfTheSensorPathTakesRangedRecordsToo) {
  report({beacon(1, 1)});
  startSearch(1);
  hear("FFF0");
  simulated.advance(seconds(6));
  EXPECT_EQ(record(0).status(), 2);
}

// The whole road on the location service that finds regions in advertisements.
class RangingFromAdvertisements : public ManagerTest {
 protected:
  RangingFromAdvertisements() { manager().setBeaconUUID(kUUID); }

  int advertise(uint16_t minor) {
    return simulated.radio().startAdvertising(
        platform::iBeaconAdvertisement(
            {.octets = {0xC0, 0, 0, 0, 0, static_cast<uint8_t>(minor)}},
            {.proximityUUID = uuid, .major = 1, .minor = minor, .measuredPower = -59}),
        milliseconds(200));
  }

  // What the next seconds bring: whether it holds ranging reports, and advertisements of sensors.
  struct Brought {
    bool ranging;
    bool sensors;
    bool operator==(const Brought&) const = default;
  };
  Brought after(seconds duration) {
    listener.take();
    simulated.advance(duration);
    const auto holds = [lines = listener.take()](const char* word) {
      return std::any_of(lines.begin(), lines.end(),
                         [&](const auto& line) { return line.starts_with(word); });
    };
    return {holds("ranged"), holds("bytes")};
  }
};

TEST_F(RangingFromAdvertisements, BeaconsAppearStayAndLeave) {
  manager().setBeaconGroupType(2);
  manager().setBeaconMajor(1);
  manager().setBeaconMinor(1);
  startSearch(2);
  const int first = advertise(1);
  const int second = advertise(2);
  simulated.advance(seconds(3));
  const Lines appeared = listener.take();
  EXPECT_EQ(std::count(appeared.begin(), appeared.end(), "new " + kUUID + "/1/1 1"), 1);
  EXPECT_EQ(std::count(appeared.begin(), appeared.end(), "new " + kUUID + "/1/2 1"), 1);
  EXPECT_EQ(appeared.back(), "ranged 2");

  simulated.radio().stopAdvertising(first);  // the region's own beacon
  simulated.advance(seconds(40));
  const Lines left = listener.take();
  EXPECT_EQ(std::count(left.begin(), left.end(), "beacon " + kUUID + "/1/1 2"), 1);
  EXPECT_EQ(manager().rangeBeaconSensors()[1]->status(), 1) << "heard again by ranging after the exit";

  simulated.radio().stopAdvertising(second);
  manager().stop();
  simulated.advance(seconds(1));
  EXPECT_FALSE(simulated.radio().isScanning());
}

TEST_F(RangingFromAdvertisements, AStopStraightAfterTheStartEndsTheSearch) {
  manager().setBeaconType(2);
  manager().setDelegate(&listener);
  simulated.advance({});
  manager().start();
  manager().stop();
  advertise(1);
  simulated.advance(seconds(40));
  EXPECT_FALSE(simulated.radio().isScanning());
  EXPECT_THAT(manager().locationManager().monitoredRegions(), IsEmpty());
  EXPECT_THAT(listener.take(), IsEmpty());
}

TEST_F(RangingFromAdvertisements, AStopEndsWhatBeganFromTheApplicationsOwnRegion) {
  manager().locationManager().startMonitoringForRegion(
      std::make_shared<platform::CLBeaconRegion>(uuid, "application"));
  startSearch(2);
  advertise(1);
  EXPECT_TRUE(after(seconds(3)).ranging);
  manager().stop();
  EXPECT_FALSE(after(seconds(3)).ranging);
  EXPECT_FALSE(simulated.radio().isScanning());
}

// The log is called where another thread's stop may come between, too.
TEST_F(RangingFromAdvertisements, AStopInTheMiddleOfAStartOrACallbackEndsTheSearch) {
  for (const char* line : {"위치서비스가 불가능합니다.", "didStartMonitoringForRegion:",
                           "-[BRLContextManager locationManager:didDetermineState:forRegion:]:"}) {
    bool isStopped = false;
    onLogLine = [&](std::string_view text) {
      if (text.starts_with(line) && !std::exchange(isStopped, true)) manager().stop();
    };
    startSearch(2);
    simulated.advance(seconds(2));
    EXPECT_TRUE(isStopped);
    EXPECT_FALSE(manager().isStart());
    EXPECT_FALSE(simulated.radio().isScanning()) << line;
    EXPECT_THAT(manager().locationManager().monitoredRegions(), IsEmpty()) << line;
  }
}

TEST_F(RangingFromAdvertisements, AStartInTheOtherModeEndsTheSearchOfTheFirst) {
  advertise(1);
  simulated.radio().startAdvertising(
      platform::sensorAdvertisement(*BluetoothAddress::fromText("C0:00:00:00:00:02"),
                                    *CBUUID::UUIDWithString(kUUID), {}),
      milliseconds(200));
  startSearch(2);
  EXPECT_EQ(after(seconds(3)), (Brought{.ranging = true, .sensors = false}));
  startSearch(1);
  EXPECT_EQ(after(seconds(3)), (Brought{.ranging = false, .sensors = true}));
  EXPECT_THAT(manager().locationManager().monitoredRegions(), IsEmpty());
  startSearch(2);
  EXPECT_EQ(after(seconds(3)), (Brought{.ranging = true, .sensors = false}));
}

TEST_F(RangingFromAdvertisements, ASearchOutlivesAWithdrawnAuthorization) {
  advertise(1);
  startSearch(2);
  EXPECT_TRUE(after(seconds(3)).ranging);
  simulated.beaconLocation().setAuthorizationStatus(platform::CLAuthorizationStatus::denied);
  EXPECT_FALSE(after(seconds(3)).ranging);
  EXPECT_FALSE(simulated.radio().isScanning());
  simulated.beaconLocation().setAuthorizationStatus(platform::CLAuthorizationStatus::authorizedAlways);
  EXPECT_TRUE(after(seconds(3)).ranging);
  EXPECT_EQ(manager().locationManager().monitoredRegions().size(), 1U);
  manager().stop();
  EXPECT_FALSE(after(seconds(1)).ranging);
  EXPECT_FALSE(simulated.radio().isScanning());
}

}  // namespace
