#include <gmock/gmock.h>

#include "platform/simulated/SimulatedWorldSource.h"
#include "tests/sdk/ManagerFixture.h"

namespace {

using platform::BeaconWorld;
using platform::CBManagerState;
using platform::CBUUID;
using platform::SensorFrame;
using testing::ElementsAre;
using testing::IsEmpty;

class Scanning : public ManagerTest {
 protected:
  Scanning() { startSearch(1); }

  const SensorFrame alarm{.emergency = 1};
};

TEST_F(Scanning, ReportsANewBeaconBeforeItIsListedAndRefreshesTheSameRecordAfterwards) {
  hear("FFF0");
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "new FFF0 1"));
  hear("FFF0", {.temperature = -1000, .battery = 7, .zAccel = -8}, -80);
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 18", "beacon FFF0 1"));
  EXPECT_EQ(listener.beacons[0], listener.beacons[1]);
  EXPECT_EQ(record(0).temperature(), "-10.00");
  EXPECT_EQ(record(0).battery(), 7);
  EXPECT_EQ(record(0).zAccel(), "-8");
  EXPECT_EQ(record(0).rssi(), -80);
  EXPECT_EQ(record(0).beaconType(), 1U);
  EXPECT_EQ(record(0).major(), 0);
}

TEST_F(Scanning, DropsAdvertisementsWithoutDataOrServiceOrAWholeFrameAndHandsOverWhatFollowsOne) {
  platform::SimulatedAdvertisement packet =
      platform::sensorAdvertisement({}, *CBUUID::UUIDWithString("FFF0"), {});
  auto withoutData = packet;
  withoutData.manufacturerData.reset();
  auto withoutService = packet;
  withoutService.serviceUUIDs.clear();
  auto shortFrame = packet;
  shortFrame.manufacturerData->resize(21);
  int address = 1;
  for (auto* dropped : {&withoutData, &withoutService, &shortFrame}) {
    dropped->address.octets[5] = static_cast<uint8_t>(address++);
    simulated.radio().advertise(*dropped);
  }
  simulated.advance({});
  EXPECT_THAT(listener.lines, IsEmpty());
  EXPECT_TRUE(manager().rangeBeaconSensors().empty());
  packet.manufacturerData->resize(25, std::byte{0xAB});
  simulated.radio().advertise(packet);
  simulated.advance({});
  EXPECT_THAT(listener.take(), ElementsAre("bytes 25 29", "new FFF0 1"));
}

TEST_F(Scanning, CallsTheEmergencyAfterANewBeaconAndBeforeAKnownOneAndNotOnAReturn) {
  hear("FFF0", alarm);
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "new FFF0 1", "emergency FFF0 1"));
  hear("FFF0", alarm);
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "emergency FFF0 1", "beacon FFF0 1"));
  simulated.advance(seconds(6));
  EXPECT_THAT(listener.take(), ElementsAre("beacon FFF0 2"));
  hear("FFF0", alarm);
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "beacon FFF0 1"));
  hear("FFF0", alarm);
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "emergency FFF0 1", "beacon FFF0 1"));
}

TEST_F(Scanning, BeaconsOfOneServiceShareARecordThatFollowsTheOneHeardLast) {
  hear("FFF0", {.txPower = 5, .uniqueId = {0x0C, 0x61, 0xCF, 0x12, 0x34, 0x56}});
  hear("FFF0", {.txPower = 9, .uniqueId = {1, 2, 3, 4, 5, 6}});
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 1U);
  EXPECT_EQ(record(0).beaconId(), "01-02-03-04-05-06");
  EXPECT_EQ(record(0).txPower(), 5);
}

TEST_F(Scanning, LogsAppearanceEmergencyLossAndReturnButNoRoutine) {
  manager().setIsLogSave(true);
  const auto rowsAfter = [&](auto event) {
    const uint64_t before = loggedRows();
    event();
    return loggedRows() - before;
  };
  EXPECT_EQ(rowsAfter([&] { hear("FFF0"); }), 1U);
  EXPECT_EQ(rowsAfter([&] { hear("FFF0"); }), 0U);
  EXPECT_EQ(rowsAfter([&] { hear("FFF0", alarm); }), 1U);
  EXPECT_EQ(rowsAfter([&] { simulated.advance(seconds(6)); }), 1U);
  EXPECT_EQ(rowsAfter([&] { hear("FFF0", alarm); }), 1U);
  EXPECT_EQ(rowsAfter([&] { manager().stop(); }), 0U);
}

TEST_F(Scanning, ALossWithoutARespondingDelegateIsNotLoggedAndAllElseIs) {
  manager().setIsLogSave(true);
  manager().setDelegate(nullptr);
  hear("FFF0");
  hear("FFF0", alarm);
  EXPECT_EQ(loggedRows(), 2U);
  simulated.advance(seconds(6));
  EXPECT_EQ(record(0).status(), 2);
  EXPECT_EQ(loggedRows(), 2U);
}

TEST_F(Scanning, StopReportsPresentRecordsInOrderAndKeepsThem) {
  for (const char* service : {"FFF0", "FFF1", "FFF2"}) hear(service);
  listener.take();
  manager().stop();
  EXPECT_THAT(listener.take(), ElementsAre("beacon FFF0 2", "beacon FFF1 2", "beacon FFF2 2"));
  simulated.advance({});
  EXPECT_FALSE(simulated.radio().isScanning());
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 3U);
  manager().stop();
  EXPECT_THAT(listener.take(), IsEmpty());
}

TEST_F(Scanning, StartWhileStartedStopsFirst) {
  hear("FFF0");
  listener.take();
  manager().start();
  EXPECT_THAT(listener.take(), ElementsAre("beacon FFF0 2"));
  simulated.advance({});
  EXPECT_TRUE(simulated.radio().isScanning());
}

TEST_F(Scanning, AStopRightAfterAStartLeavesTheRadioScanning) {
  manager().stop();
  manager().start();
  manager().stop();  // before the scanner queue has come to the start
  simulated.advance({});
  EXPECT_FALSE(manager().isStart());
  EXPECT_TRUE(simulated.radio().isScanning());
  hear("FFF0");
  EXPECT_THAT(listener.take(), ElementsAre("bytes 22 29", "new FFF0 1"));
  manager().stop();
  EXPECT_FALSE(simulated.radio().isScanning());
}

TEST_F(Scanning, TheRadiosReturnRestartsASensorSearchOnly) {
  const auto scansAfterReturn = [&] {
    simulated.radio().setState(CBManagerState::poweredOff);
    simulated.advance({});
    simulated.log().clear();
    simulated.radio().setState(CBManagerState::poweredOn);
    simulated.advance({});
    const auto lines = simulated.log().lines();
    return std::count(lines.begin(), lines.end(), "Starting to scan for Eddystones");
  };
  EXPECT_EQ(scansAfterReturn(), 1);
  manager().setBeaconType(2);
  EXPECT_EQ(scansAfterReturn(), 0);
  manager().setBeaconType(1);
  manager().stop();
  EXPECT_EQ(scansAfterReturn(), 0);
}

TEST_F(Scanning, ARadioThatIsOffIsLoggedWithItsState) {
  simulated.radio().setState(CBManagerState::poweredOff);
  simulated.advance({});
  manager().start();
  simulated.advance({});
  EXPECT_EQ(simulated.log().lines().back(), "CBCentralManager state is 4, cannot start or stop scanning");
}

TEST_F(Scanning, ADelegateMayStopAndAskTheLogInsideACall) {
  manager().setIsLogSave(true);
  BRLDelegateHandlers handlers;
  int calls = 0;
  handlers.forBeacon = [&](BRLContextManager& self, const auto&) {
    if (++calls == 2) self.stop();
    self.selectBeaconLogAllCountWithCompletionBlock([](uint64_t) {});
  };
  manager().setDelegate(&handlers);
  hear("FFF0");
  hear("FFF0");
  EXPECT_EQ(calls, 3);  // the stop inside the second call reports the loss
  EXPECT_EQ(record(0).status(), 2);
}

class ScanRequests : public ManagerTest {
 protected:
  ScanRequests() : ManagerTest({.bluetooth = SimulatedPlatformOptions::Bluetooth::scripted}) {}
};

TEST_F(ScanRequests, AskForTheConfiguredServiceAndForDuplicates) {
  using Kind = platform::ScriptedBluetooth::Operation::Kind;
  manager();
  simulated.advance({});
  const std::pair<const char*, std::optional<std::vector<CBUUID>>> rows[] = {
      {"fff0", {{CBUUID::fromShort(0xFFF0)}}}, {"", std::nullopt}};
  for (const auto& [uuid, services] : rows) {
    manager().setBeaconUUID(uuid);
    startSearch(1);
    const auto operation = simulated.scriptedBluetooth().operations().back();
    EXPECT_EQ(operation.kind, Kind::scan);
    EXPECT_TRUE(operation.options.allowDuplicates);
    EXPECT_TRUE(operation.services == services) << uuid;
  }
}

// As docs/testing-applications.md shows it.
class Crowd : public ManagerTest {
 protected:
  Crowd()
      : ManagerTest({.makeRadio = [](const auto& dispatch) {
          return platform::makeSimulatedWorldSource(dispatch, {.sensors = 4, .iBeacons = 3},
                                                    platform::DISPATCH_TIME_FOREVER);
        }}) {}
};

TEST_F(Crowd, IsHeardByTheScanAndByTheRegions) {
  startSearch(1);
  simulated.advance(seconds(60));
  EXPECT_EQ(manager().rangeBeaconSensors().size(), 4U);
  manager().setBeaconUUID(BeaconWorld::kProximityUUIDs[0]);
  startSearch(2);
  simulated.advance(seconds(60));
  EXPECT_EQ(record(4).uuid(), BeaconWorld::kProximityUUIDs[0]);
}

}  // namespace
