#include <atomic>
#include <filesystem>
#include <thread>

#include "LocationFixture.h"

namespace {

using platform::SimulatedPlatform;
using platform::SimulatedPlatformOptions;

const platform::BluetoothAddress kAddress{{0xC0, 0, 0, 0, 0, 1}, true};
const platform::CBUUID kService = platform::CBUUID::fromShort(0xA001);

class ASimulatedRadio : public testing::Test {
 protected:
  ASimulatedRadio() {
    const auto queue = simulated.services().dispatch->createQueue("central");
    central = simulated.services().bluetooth->makeCentralManager(listener, queue);
    simulated.advance({});
    central->scanForPeripheralsWithServices_options(std::nullopt, {.allowDuplicates = true});
    simulated.advance({});
    listener.take();
  }
  std::size_t heardAfter(seconds duration) {
    simulated.advance(duration);
    return listener.take().size();
  }

  SimulatedPlatform simulated;
  CentralListener listener;
  std::unique_ptr<platform::CBCentralManager> central;
  platform::SimulatedAdvertisement packet = platform::sensorAdvertisement(
      kAddress, kService, {.temperature = -1, .uniqueId = kAddress.octets}, -61);
};

TEST_F(ASimulatedRadio, DeliversAPacketThroughItsQueueOctetByOctet) {
  simulated.radio().advertise(packet);
  const auto octets = platform::octetsFromHex("030301a003ff29");
  simulated.radio().report({.address = {{0xC0, 0, 0, 0, 0, 2}}, .rssi = -7, .data = *octets});
  EXPECT_EQ(listener.take(), Lines{});
  simulated.advance({});
  EXPECT_EQ(listener.take(), (Lines{"C0:00:00:00:00:01 -61 ffffc012006400c000000000010000000003e8000000",
                                    "C0:00:00:00:00:02 -7 "}));
  EXPECT_EQ(packet.octets().size(), 31U);
}

TEST_F(ASimulatedRadio, RepeatsAPacketUntilItIsStoppedUnheardWhileDeaf) {
  const int first = simulated.radio().startAdvertising(packet, milliseconds(500));
  const int second = simulated.radio().startAdvertising(packet, seconds(1));
  EXPECT_EQ(heardAfter(seconds(2)), 5U + 3U);
  simulated.radio().setDeaf(true);
  EXPECT_EQ(heardAfter(seconds(2)), 0U);
  EXPECT_EQ(central->state(), platform::CBManagerState::poweredOn);
  simulated.radio().setDeaf(false);
  simulated.radio().stopAdvertising(first);
  EXPECT_EQ(heardAfter(seconds(2)), 2U);
  simulated.radio().stopAdvertising(second);
  EXPECT_EQ(heardAfter(seconds(2)), 0U);
}

TEST(AScriptedCentral, IsToldThroughItsQueueAndNothingOnceItIsGone) {
  SimulatedPlatform simulated({.bluetooth = SimulatedPlatformOptions::Bluetooth::scripted});
  auto& script = simulated.scriptedBluetooth();
  CentralListener listener;
  auto central = simulated.services().bluetooth->makeCentralManager(
      listener, simulated.services().dispatch->createQueue("central"));
  script.discover({"C0:00:00:00:00:01"}, {}, -5);
  EXPECT_EQ(listener.take(), Lines{});
  simulated.advance({});
  EXPECT_EQ(listener.take(), (Lines{"state 5", "C0:00:00:00:00:01 -5 "}));
  script.setState(platform::CBManagerState::poweredOff);
  central.reset();
  simulated.advance({});
  EXPECT_EQ(listener.take(), Lines{});
}

TEST(AScriptedLocation, ShowsNobodyThatARegionIsMissingWhileItIsReplaced) {
  SimulatedPlatform simulated({.location = SimulatedPlatformOptions::Location::scripted});
  const auto manager = simulated.services().location->makeLocationManager();
  const auto region = beaconRegion("R", kUUID);
  manager->startMonitoringForRegion(region);
  std::atomic<bool> isDone = false;
  std::thread replacer([&] {
    for (int time = 0; time < 20'000; ++time) manager->startMonitoringForRegion(region);
    isDone = true;
  });
  int missing = 0;
  while (!isDone) missing += manager->monitoredRegions().empty() ? 1 : 0;
  replacer.join();
  EXPECT_EQ(missing, 0);
}

TEST(ASimulatedPlatform, RemovesItsOwnDocumentsFolderAndLeavesOneThatItWasGiven) {
  const auto given = std::filesystem::path(testing::TempDir()) / "brenloft-kept-documents";
  std::filesystem::create_directories(given);
  std::filesystem::path own;
  {
    const SimulatedPlatform simulated;
    const SimulatedPlatform kept({.documents = given});
    own = simulated.documents();
    EXPECT_TRUE(std::filesystem::is_directory(own));
  }
  EXPECT_FALSE(std::filesystem::exists(own));
  EXPECT_TRUE(std::filesystem::remove(given));
}

}  // namespace
