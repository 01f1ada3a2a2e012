#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/foundation/Hex.h"
#include "platform/simulated/SimulatedPlatform.h"

using Lines = std::vector<std::string>;
using platform::CLAuthorizationStatus;
using platform::CLBeacon;
using platform::CLBeaconRegion;
using platform::CLRegionPtr;
using platform::CLRegionState;
using std::chrono::milliseconds;
using std::chrono::seconds;

inline const platform::NSUUID kUUID =
    *platform::NSUUID::initWithUUIDString("0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9");
inline const platform::NSUUID kOtherUUID =
    *platform::NSUUID::initWithUUIDString("11111111-2222-4333-8444-555555555555");

/// Writes down what a location manager reports, one line a call.
class LocationListener final : public platform::CLLocationManagerDelegate {
 public:
  Lines lines;
  std::function<void()> onLine = [] {};

  Lines take() { return std::exchange(lines, {}); }

  void locationManager_didChangeAuthorizationStatus(platform::CLLocationManager&, int32_t status) override {
    add("authorization " + std::to_string(status));
  }
  void locationManager_didStartMonitoringForRegion(platform::CLLocationManager&,
                                                   const CLRegionPtr& region) override {
    add("started " + region->identifier());
  }
  void locationManager_monitoringDidFailForRegion_withError(platform::CLLocationManager&,
                                                            const CLRegionPtr& region,
                                                            const platform::CLError& error) override {
    add("failed " + region->identifier() + " " + std::to_string(error.code));
  }
  void locationManager_didFailWithError(platform::CLLocationManager&,
                                        const platform::CLError& error) override {
    add("failed " + std::to_string(error.code));
  }
  void locationManager_didEnterRegion(platform::CLLocationManager&, const CLRegionPtr& region) override {
    add("entered " + region->identifier());
  }
  void locationManager_didExitRegion(platform::CLLocationManager&, const CLRegionPtr& region) override {
    add("exited " + region->identifier());
  }
  void locationManager_didDetermineState_forRegion(platform::CLLocationManager&, CLRegionState state,
                                                   const CLRegionPtr& region) override {
    static const Lines names = {"unknown ", "inside ", "outside "};
    add(names.at(static_cast<std::size_t>(state)) + region->identifier());
  }
  void locationManager_didRangeBeacons_inRegion(platform::CLLocationManager&,
                                                const std::vector<CLBeacon>& beacons,
                                                const platform::CLBeaconRegionPtr& region) override {
    std::string line = "ranged " + region->identifier() + ":";
    for (const CLBeacon& beacon : beacons)
      line += " " + std::to_string(beacon.major) + "/" + std::to_string(beacon.minor) + "=" +
              std::to_string(beacon.rssi);
    add(std::move(line));
  }

 private:
  void add(std::string line) {
    lines.push_back(std::move(line));
    onLine();
  }
};

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

template <class... Numbers>
std::shared_ptr<CLBeaconRegion> beaconRegion(const std::string& identifier, const platform::NSUUID& uuid,
                                             Numbers... numbers) {
  return std::make_shared<CLBeaconRegion>(uuid, static_cast<uint16_t>(numbers)..., identifier);
}

/// One manager of the service that works from advertisements, on virtual time with a simulated radio.
class BeaconLocationTest : public testing::Test {
 protected:
  explicit BeaconLocationTest(platform::SimulatedPlatformOptions options = {})
      : simulated(std::move(options)), manager(makeManager(listener)) {
    simulated.advance({});
    listener.take();
  }

  std::unique_ptr<platform::CLLocationManager> makeManager(LocationListener& to) {
    auto made = simulated.services().location->makeLocationManager();
    made->setDelegate(&to);
    return made;
  }

  /// One frame, heard before the call returns.
  void hear(const platform::NSUUID& uuid, int major, int minor, int rssi = -60, int8_t measuredPower = -59) {
    platform::iBeaconFrame frame{uuid, static_cast<uint16_t>(major), static_cast<uint16_t>(minor),
                                 measuredPower};
    simulated.radio().advertise(platform::iBeaconAdvertisement(
        {{0xC1, 0, 0, 0, 0, static_cast<uint8_t>(minor)}, true}, frame, static_cast<int8_t>(rssi)));
    simulated.advance({});
  }

  /// What the listener is told from now on.
  Lines after(platform::dispatch_time_t duration) {
    simulated.advance(duration);
    return listener.take();
  }
  Lines hearing(const platform::NSUUID& uuid, int major, int minor) {
    hear(uuid, major, minor);
    return listener.take();
  }

  /// Monitors and lets the radio begin to listen.
  void monitor(const CLRegionPtr& of) {
    manager->startMonitoringForRegion(of);
    simulated.advance({});
  }

  Lines stateOf(const CLRegionPtr& of) {
    listener.take();
    manager->requestStateForRegion(of);
    return after({});
  }

  platform::SimulatedPlatform simulated;
  LocationListener listener;
  std::unique_ptr<platform::CLLocationManager> manager;
  std::shared_ptr<CLBeaconRegion> region = beaconRegion("R", kUUID);
};
