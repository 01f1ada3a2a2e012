#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/location/CLLocationManager.h"

namespace support {

using Lines = std::vector<std::string>;

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
                                                   const platform::CLRegionPtr& region) override {
    add("started " + region->identifier());
  }
  void locationManager_monitoringDidFailForRegion_withError(platform::CLLocationManager&,
                                                            const platform::CLRegionPtr& region,
                                                            const platform::CLError& error) override {
    add("failed " + region->identifier() + " " + std::to_string(error.code));
  }
  void locationManager_didFailWithError(platform::CLLocationManager&,
                                        const platform::CLError& error) override {
    add("failed " + std::to_string(error.code));
  }
  void locationManager_didEnterRegion(platform::CLLocationManager&,
                                      const platform::CLRegionPtr& region) override {
    add("entered " + region->identifier());
  }
  void locationManager_didExitRegion(platform::CLLocationManager&,
                                     const platform::CLRegionPtr& region) override {
    add("exited " + region->identifier());
  }
  void locationManager_didDetermineState_forRegion(platform::CLLocationManager&,
                                                   platform::CLRegionState state,
                                                   const platform::CLRegionPtr& region) override {
    static const Lines names = {"unknown ", "inside ", "outside "};
    add(names.at(static_cast<std::size_t>(state)) + region->identifier());
  }
  void locationManager_didRangeBeacons_inRegion(platform::CLLocationManager&,
                                                const std::vector<platform::CLBeacon>& beacons,
                                                const platform::CLBeaconRegionPtr& region) override {
    std::string line = "ranged " + region->identifier() + ":";
    for (const platform::CLBeacon& beacon : beacons)
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

}  // namespace support
