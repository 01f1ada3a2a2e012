#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "platform/simulated/SimulatedPlatform.h"

// Both searches at work on one list, on real queues and threads, while the application starts, stops, reads
// and asks the log. The thread sanitizer looks on.

namespace {

using platform::CBUUID;
using platform::CLBeacon;
using platform::NSUUID;
using std::chrono::milliseconds;

constexpr int kBeacons = 500;
constexpr int kRounds = 400;  // of one advertisement of each beacon: ten seconds

CBUUID serviceOf(int beacon) {
  return CBUUID::fromShort(static_cast<uint32_t>(0x1000 + beacon));
}

TEST(ManagerUnderLoad, LosesNoBeaconWhileEverythingHappensAtOnce) {
  static auto& simulated =
      *new platform::SimulatedPlatform({.clock = platform::SimulatedPlatformOptions::Clock::realTime,
                                        .bluetooth = platform::SimulatedPlatformOptions::Bluetooth::scripted,
                                        .location = platform::SimulatedPlatformOptions::Location::scripted});
  simulated.install();
  // The manager's queues outlive the test, and with them what they call.
  static auto& handlers = *new BRLDelegateHandlers;
  static auto& calls = *new std::atomic<uint64_t>{0};
  handlers.forBeacon = [&](BRLContextManager&, const auto&) { ++calls; };
  handlers.didRangeBeaconSensors = [&](BRLContextManager&, const BRLRecordList& list) {
    calls += list.size();
  };
  auto* manager = BRLContextManager::Class::brlWithProximityUUID(std::nullopt);
  manager->setBeaconExitTime(0.05);  // lost checks run all the time
  manager->setBeaconGroupType(2);
  manager->setIsLogSave(false);
  manager->setDelegate(&handlers);
  manager->setBeaconType(1);
  manager->start();

  std::thread mainQueue([&] { simulated.realTime().run(); });
  std::atomic<bool> done{false};
  std::thread application([&] {
    uint64_t rows = 0;
    while (!done) {
      manager->stop();
      manager->start();
      for (const auto& record : manager->rangeBeaconSensors()) rows += record->snapshot().uuid.has_value();
      manager->setIsLogSave(!manager->isLogSave());
      manager->selectBeaconLogAllCountWithCompletionBlock([&](uint64_t count) { rows += count; });
      std::this_thread::sleep_for(milliseconds(5));
    }
  });
  std::thread ranging([&] {
    const NSUUID uuid;
    for (uint16_t round = 0; !done; ++round) {
      std::vector<CLBeacon> beacons;
      for (uint16_t minor = 0; minor < 10; ++minor) beacons.push_back({uuid, 1, minor, -round % 90});
      simulated.scriptedLocation().ranged(std::move(beacons), nullptr,
                                          platform::ScriptedLocationService::Delivery::callingThread);
      std::this_thread::sleep_for(milliseconds(1));
    }
  });

  for (int round = 0; round < kRounds; ++round) {
    for (int beacon = 0; beacon < kBeacons; ++beacon) {
      simulated.scriptedBluetooth().discover(
          {}, {.manufacturerData = platform::SensorFrame{}.octets(), .serviceUUIDs = {{serviceOf(beacon)}}},
          -60);
    }
    std::this_thread::sleep_for(milliseconds(25));  // 20,000 a second
  }
  const auto sensors = [&] {
    const auto view = manager->rangeBeaconSensors().view();
    return std::count_if(view.begin(), view.end(), [](const auto& r) { return r->beaconType() == 1; });
  };
  while (sensors() < kBeacons) std::this_thread::sleep_for(milliseconds(5));
  done = true;
  application.join();
  ranging.join();
  simulated.realTime().stop();
  mainQueue.join();

  std::set<std::string> heard;
  for (const auto& record : manager->rangeBeaconSensors()) {
    if (record->beaconType() == 1) heard.insert(*record->uuid());
  }
  EXPECT_EQ(heard.size(), static_cast<size_t>(kBeacons));
  EXPECT_EQ(sensors(), kBeacons) << "a beacon has two records";
  EXPECT_GT(calls, 0U);
}

}  // namespace
