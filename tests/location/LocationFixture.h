#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/foundation/Hex.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/support/LocationListener.h"

using platform::CLAuthorizationStatus;
using platform::CLBeaconRegion;
using platform::CLRegionPtr;
using platform::CLRegionState;
using support::Lines;
using support::LocationListener;
using std::chrono::milliseconds;
using std::chrono::seconds;

inline const platform::NSUUID kUUID =
    *platform::NSUUID::initWithUUIDString("0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9");
inline const platform::NSUUID kOtherUUID =
    *platform::NSUUID::initWithUUIDString("11111111-2222-4333-8444-555555555555");

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
  explicit BeaconLocationTest(const platform::SimulatedPlatformOptions& options = {})
      : simulated(options), manager(makeManager(listener)) {
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
