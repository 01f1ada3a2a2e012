#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "platform/simulated/SimulatedPlatform.h"

// A context manager on a simulated platform, and a delegate that writes down what it hears. The shared
// instance lives to the end of the process: each test runs in a process of its own.

using Lines = std::vector<std::string>;
using platform::SimulatedPlatformOptions;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

inline std::string describe(const BRLBeaconDataModel& record) {
  std::string text = record.uuid().value_or("-");
  if (record.beaconType() == 2)
    text += "/" + std::to_string(record.major()) + "/" + std::to_string(record.minor());
  return text + " " + std::to_string(record.status());
}

/// Hears all four operations.
class Listener final : public BRLDelegateOf<Listener> {
 public:
  Lines lines;
  std::vector<std::shared_ptr<BRLBeaconDataModel>> beacons;

  void contextManager_forBeacon(BRLContextManager& manager,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    const auto view = manager.rangeBeaconSensors().view();
    const bool listed = std::find(view.begin(), view.end(), beacon) != view.end();
    lines.push_back((listed ? "beacon " : "new ") + describe(*beacon));
    beacons.push_back(beacon);
  }
  void contextManager_didRangeBeaconSensors(BRLContextManager&, const BRLRecordList& list) override {
    lines.push_back("ranged " + std::to_string(list.size()));
  }
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>& octets) override {
    lines.push_back("bytes " + std::to_string(octets.size()) + " " + octets.front());
  }
  void emergencyCallback_forBeacon(BRLContextManager&,
                                   const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    lines.push_back("emergency " + describe(*beacon));
  }

  Lines take() { return std::exchange(lines, {}); }
};

class ManagerTest : public testing::Test {
 protected:
  /// `exchange` may put services of its own into the platform before it is installed.
  explicit ManagerTest(const SimulatedPlatformOptions& options = {},
                       const std::function<void(platform::Platform&)>& exchange = {})
      : simulated(options) {
    simulated.services().log = [this, keep = simulated.services().log](std::string_view line) {
      keep(line);
      onLogLine(line);
    };
    if (exchange) exchange(simulated.services());
    simulated.install();
  }

  BRLContextManager& manager() {
    return *dynamic_cast<BRLContextManager*>(BRLContextManager::Class::shareInstance());
  }

  /// Makes the manager, installs the listener and starts the search.
  void startSearch(uint64_t beaconType) {
    manager().setBeaconType(beaconType);
    manager().setDelegate(&listener);
    manager().start();
    simulated.advance({});
  }

  /// One advertisement of the sensor beacon with this service, now.
  void hear(const char* service, platform::SensorFrame frame = {}, int8_t rssi = -60) {
    simulated.radio().advertise(
        platform::sensorAdvertisement(*platform::BluetoothAddress::fromText("C0:00:00:00:00:01"),
                                      *platform::CBUUID::UUIDWithString(service), frame, rssi));
    simulated.advance({});
  }

  const BRLBeaconDataModel& record(size_t index) { return *manager().rangeBeaconSensors()[index]; }

  /// Nothing is lost before this much silence, and the first record with it.
  void expectLossAfter(platform::dispatch_time_t silence) {
    simulated.advance(silence - platform::dispatch_time_t(1));
    EXPECT_EQ(record(0).status(), 1);
    simulated.advance(platform::dispatch_time_t(1));
    EXPECT_EQ(record(0).status(), 2);
  }

  uint64_t loggedRows() {
    uint64_t rows = 0;
    manager().selectBeaconLogAllCountWithCompletionBlock([&](uint64_t count) { rows = count; });
    return rows;
  }

  platform::SimulatedPlatform simulated;
  Listener listener;
  std::function<void(std::string_view)> onLogLine = [](std::string_view) {};
};
