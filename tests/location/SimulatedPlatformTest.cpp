#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "LocationFixture.h"
#include "platform/foundation/NSFileManager.h"

namespace {

using platform::ScriptedBluetooth;
using platform::ScriptedLocationService;
using platform::SimulatedPlatform;
using platform::SimulatedPlatformOptions;
using Delivery = ScriptedLocationService::Delivery;

/// Writes down what a central manager reports.
class CentralListener final : public platform::CBCentralManagerDelegate {
 public:
  Lines lines;

  Lines take() { return std::exchange(lines, {}); }
  void centralManagerDidUpdateState(platform::CBCentralManager& central) override {
    lines.push_back("state " + std::to_string(static_cast<int>(central.state())));
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(platform::CBCentralManager&,
                                                                   const platform::CBPeripheral& peripheral,
                                                                   const platform::CBAdvertisementData& data,
                                                                   int64_t rssi) override {
    lines.push_back(peripheral.identifier + " " + std::to_string(rssi) + " " +
                    platform::hexText(data.manufacturerData.value_or(platform::Data{})));
  }
};

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
  EXPECT_EQ(listener.take(), Lines{});
  simulated.advance({});
  EXPECT_EQ(listener.take(), Lines{"C0:00:00:00:00:01 -61 ffffc012006400c00000000001"
                                   "0000000003e8000000"});
  EXPECT_EQ(packet.octets().size(), 31U);
}

TEST_F(ASimulatedRadio, RepeatsAPacketUntilItIsStopped) {
  const int first = simulated.radio().startAdvertising(packet, milliseconds(500));
  const int second = simulated.radio().startAdvertising(packet, seconds(1));
  EXPECT_EQ(heardAfter(seconds(2)), 5U + 3U);
  simulated.radio().stopAdvertising(first);
  EXPECT_EQ(heardAfter(seconds(2)), 2U);
  simulated.radio().stopAdvertising(second);
  EXPECT_EQ(heardAfter(seconds(2)), 0U);
}

TEST_F(ASimulatedRadio, HearsNothingWhileItIsDeafOffOrNotAsked) {
  simulated.radio().startAdvertising(packet, seconds(1));
  EXPECT_GT(heardAfter(seconds(2)), 0U);
  simulated.radio().setDeaf(true);
  EXPECT_EQ(heardAfter(seconds(2)), 0U);
  EXPECT_EQ(central->state(), platform::CBManagerState::poweredOn);
  simulated.radio().setDeaf(false);
  EXPECT_GT(heardAfter(seconds(2)), 0U);
  const std::size_t before = simulated.radio().heardCount();
  simulated.radio().setState(platform::CBManagerState::unauthorized);
  simulated.advance(seconds(2));
  EXPECT_EQ(listener.take(), Lines{"state 3"});
  simulated.radio().setState(platform::CBManagerState::poweredOn);
  central->stopScan();
  simulated.advance(seconds(2));
  EXPECT_EQ(listener.take(), Lines{"state 5"});
  EXPECT_EQ(simulated.radio().heardCount(), before);
}

TEST_F(ASimulatedRadio, HandsInRawOctetsAndTellsWhatWasScannedFor) {
  central->scanForPeripheralsWithServices_options(std::vector{kService}, {});
  EXPECT_EQ(simulated.radio().scannedServices(), std::vector{kService});
  const auto octets = platform::octetsFromHex("030301a003ff29");
  simulated.radio().report({.time = {}, .address = kAddress, .rssi = -7, .data = *octets});
  simulated.advance({});
  EXPECT_EQ(listener.take(), Lines{"C0:00:00:00:00:01 -7 "});
}

class AScriptedCentral : public testing::Test {
 protected:
  SimulatedPlatform simulated{[] {
    SimulatedPlatformOptions options;
    options.bluetooth = SimulatedPlatformOptions::Bluetooth::scripted;
    options.radioState = platform::CBManagerState::poweredOff;
    return options;
  }()};
  CentralListener listener;
};

TEST_F(AScriptedCentral, RecordsWhatIsAskedAndDeliversWhatItIsToldThroughTheQueue) {
  ScriptedBluetooth& script = simulated.scriptedBluetooth();
  auto central = simulated.services().bluetooth->makeCentralManager(
      listener, simulated.services().dispatch->createQueue("central"));
  central->scanForPeripheralsWithServices_options(std::vector{kService}, {.allowDuplicates = true});
  central->stopScan();
  const auto operations = script.operations();
  ASSERT_EQ(operations.size(), 3U);
  EXPECT_EQ(operations[0].kind, ScriptedBluetooth::Operation::Kind::makeCentralManager);
  EXPECT_EQ(operations[1].kind, ScriptedBluetooth::Operation::Kind::scan);
  EXPECT_EQ(operations[1].services, std::vector{kService});
  EXPECT_TRUE(operations[1].options.allowDuplicates);
  EXPECT_EQ(operations[2].kind, ScriptedBluetooth::Operation::Kind::stopScan);

  platform::CBAdvertisementData data;
  data.manufacturerData = platform::octetsFromHex("0102");
  script.discover({"C0:00:00:00:00:01"}, data, -5);
  EXPECT_EQ(listener.take(), Lines{});
  simulated.advance({});
  EXPECT_EQ(listener.take(), (Lines{"state 4", "C0:00:00:00:00:01 -5 0102"}));
  script.setState(platform::CBManagerState::poweredOn);
  central.reset();
  simulated.advance({});
  EXPECT_EQ(listener.take(), Lines{});
}

class AScriptedLocation : public testing::Test {
 protected:
  AScriptedLocation() {
    manager->setDelegate(&listener);
    simulated.advance({});
    listener.take();
  }

  SimulatedPlatform simulated{[] {
    SimulatedPlatformOptions options;
    options.location = SimulatedPlatformOptions::Location::scripted;
    options.authorization = CLAuthorizationStatus::notDetermined;
    return options;
  }()};
  ScriptedLocationService& script = simulated.scriptedLocation();
  LocationListener listener;
  std::unique_ptr<platform::CLLocationManager> manager = simulated.services().location->makeLocationManager();
  std::shared_ptr<CLBeaconRegion> region = beaconRegion("R", kUUID, 3);
};

TEST_F(AScriptedLocation, RecordsEveryOperationInOrderAndDoesNothingElse) {
  manager->startMonitoringForRegion(region);
  manager->requestStateForRegion(region);
  manager->startRangingBeaconsInRegion(region);
  manager->stopRangingBeaconsInRegion(region);
  manager->stopMonitoringForRegion(region);
  manager->requestAlwaysAuthorization();
  manager->startMonitoringSignificantLocationChanges();
  simulated.advance(seconds(60));
  EXPECT_EQ(script.operationNames(),
            (Lines{"startMonitoringForRegion:", "requestStateForRegion:", "startRangingBeaconsInRegion:",
                   "stopRangingBeaconsInRegion:", "stopMonitoringForRegion:", "requestAlwaysAuthorization",
                   "startMonitoringSignificantLocationChanges"}));
  EXPECT_EQ(script.operations().front().region, region);
  EXPECT_EQ(listener.take(), Lines{});
  script.clearOperations();
  EXPECT_TRUE(script.operations().empty());
}

TEST_F(AScriptedLocation, KeepsTheMonitoredRegionsByIdentifierUnlessToldOtherwise) {
  manager->startMonitoringForRegion(region);
  const auto replacement = beaconRegion("R", kOtherUUID);
  manager->startMonitoringForRegion(replacement);
  EXPECT_EQ(manager->monitoredRegions(), std::vector<CLRegionPtr>{replacement});
  script.setMonitoredRegions({region, replacement});
  EXPECT_EQ(manager->monitoredRegions().size(), 2U);
  manager->stopMonitoringForRegion(region);
  EXPECT_TRUE(manager->monitoredRegions().empty());
}

TEST_F(AScriptedLocation, ShowsNobodyThatARegionIsMissingWhileItIsReplaced) {
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

TEST_F(AScriptedLocation, ReportsWhatItIsToldOnTheMainQueue) {
  script.startedMonitoring(region);
  script.monitoringFailed(region, {5, "no"});
  script.failed({7, "no"});
  script.determinedState(CLRegionState::inside, region);
  script.entered(region);
  script.exited(region);
  script.ranged({{kUUID, 1, 2, -60}, {kUUID, 1, 3, 0}}, region);
  script.changeAuthorization(CLAuthorizationStatus::authorizedWhenInUse);
  EXPECT_EQ(listener.take(), Lines{});
  EXPECT_EQ(simulated.services().location->authorizationStatus(), CLAuthorizationStatus::authorizedWhenInUse);
  simulated.advance({});
  EXPECT_EQ(listener.take(), (Lines{"started R", "failed R 5", "failed 7", "inside R", "entered R",
                                    "exited R", "ranged R: 1/2=-60 1/3=0", "authorization 4"}));
}

TEST_F(AScriptedLocation, ReportsOnTheCallingThreadWhenAsked) {
  std::thread::id reporter;
  listener.onLine = [&] { reporter = std::this_thread::get_id(); };
  std::thread other([&] { script.ranged({}, region, Delivery::callingThread); });
  const std::thread::id expected = other.get_id();
  other.join();
  EXPECT_EQ(listener.take(), Lines{"ranged R:"});
  EXPECT_EQ(reporter, expected);
}

TEST_F(AScriptedLocation, AnswersQuestionsAsItIsTold) {
  EXPECT_TRUE(manager->respondsToRequestAlwaysAuthorization());
  script.setRespondsToRequestAlwaysAuthorization(false);
  EXPECT_FALSE(manager->respondsToRequestAlwaysAuthorization());
  script.setLocationServicesEnabled(false);
  EXPECT_FALSE(simulated.services().location->locationServicesEnabled());
  script.setAuthorizationStatus(CLAuthorizationStatus::denied);
  simulated.advance({});
  EXPECT_EQ(simulated.services().location->authorizationStatus(), CLAuthorizationStatus::denied);
  EXPECT_EQ(listener.take(), Lines{});
}

TEST(ASimulatedPlatform, HasADocumentsFolderThatGoesWithIt) {
  std::filesystem::path folder;
  {
    SimulatedPlatform simulated;
    folder = simulated.documents();
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_EQ(simulated.services().fileManager->URLsForDirectory_inDomains(
                  platform::NSSearchPathDirectory::NSDocumentDirectory,
                  platform::NSSearchPathDomainMask::NSUserDomainMask),
              std::vector{folder});
  }
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(ASimulatedPlatform, LeavesAFolderAndSettingsThatItWasGiven) {
  const auto folder = std::filesystem::path(testing::TempDir()) / "brenloft-kept-documents";
  std::filesystem::create_directories(folder);
  SimulatedPlatformOptions options;
  options.documents = folder;
  options.userDefaults = platform::makeInMemoryUserDefaults();
  options.userDefaults->setDouble_forKey(3.0, "BeaconExitTime");
  {
    SimulatedPlatform simulated(options);
    EXPECT_EQ(simulated.services().userDefaults->doubleForKey("BeaconExitTime"), 3.0);
  }
  EXPECT_TRUE(std::filesystem::remove(folder));
}

TEST(ASimulatedPlatform, BeginsAtItsDateAndKeepsTheLogOfTheInstalledLibrary) {
  SimulatedPlatform simulated;
  simulated.install();
  simulated.advance(milliseconds(1500));
  EXPECT_EQ(platform::timeIntervalSince1970(platform::Platform::installed().dispatch->date()),
            1'767'225'601.5);
  platform::NSLog("one");
  platform::NSLog("two");
  platform::NSLog("one");
  EXPECT_EQ(simulated.log().lines(), (Lines{"one", "two", "one"}));
  EXPECT_EQ(simulated.log().count("one"), 2U);
  simulated.log().clear();
  EXPECT_TRUE(simulated.log().lines().empty());
}

TEST(ASimulatedPlatform, EndsTheProcessWhenAPartIsAskedForThatWasNotChosen) {
  SimulatedPlatform simulated;
  EXPECT_DEATH(simulated.scriptedLocation(), "scriptedLocation is not part of this platform");
}

}  // namespace
