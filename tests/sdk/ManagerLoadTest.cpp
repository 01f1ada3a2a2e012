#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "platform/simulated/SimulatedPlatform.h"

// 20,000 advertisements a second from 500 beacons for ten seconds, or as many as the machine can take, on
// real queues and threads. Meanwhile ranging reports, and the application reads the list and selects the log;
// in the first half it also stops and starts all the time. The thread sanitizer looks on.

namespace {

using platform::CBUUID;
using platform::dispatch_time_t;
using platform::SimulatedPlatformOptions;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kBeacons = 500;
constexpr seconds kHalf(5);
constexpr milliseconds kRoundTime(25);  // one advertisement of each beacon
constexpr double kExitTime = 0.05;      // seconds; lost checks run all the time
constexpr milliseconds kPause(250);
constexpr seconds kPatience(60);       // no measure of speed: the end of waiting for what never comes
constexpr uint64_t kOnTheWay = 5'000;  // advertisements, at most: what exceeds 10,000 would be dropped
constexpr size_t kRowsKept = 200;

// What an advertisement is for. It travels as the battery level, octet 5 of the frame; the number of a probe
// as the transmit power, octet 4.
enum Purpose : uint8_t { unsteady, steady, probe, foreign, kPurposes };

class Load {
 public:
  Load();

  void advertise(Purpose purpose, int beacon);
  /// One half: a round every 25 ms or, when that is too fast, as the reports keep up. False when they stop.
  bool feed(Purpose purpose);
  /// True once the search is on and everything that was advertised and asked for before has been dealt with.
  bool awaitProbe();
  bool await(const std::function<bool()>& condition) const;
  void end();

  uint64_t sent(Purpose purpose) const { return sent_.at(purpose); }
  uint64_t reported(Purpose purpose) const { return reported_.at(purpose); }
  dispatch_time_t now() const { return simulated_.realTime().now(); }
  platform::ScriptedLocationService& location() { return simulated_.scriptedLocation(); }

 private:
  mutable platform::SimulatedPlatform simulated_{{.clock = SimulatedPlatformOptions::Clock::realTime,
                                                  .location = SimulatedPlatformOptions::Location::scripted}};
  BRLDelegateHandlers handlers_;
  std::array<uint64_t, kPurposes> sent_{};
  std::array<std::atomic<uint64_t>, kPurposes> reported_{};
  uint8_t probeSent_ = 0;
  std::atomic<uint8_t> probeReported_{0};
  std::thread mainQueue_;
};

Load::Load() {
  simulated_.install();
  handlers_.didByteArray = [this](BRLContextManager&, const std::vector<std::string>& octets) {
    const auto numberAt = [&](size_t index) { return std::stoul(octets.at(index), nullptr, 16); };
    ++reported_.at(numberAt(5));
    if (numberAt(5) == probe) probeReported_ = static_cast<uint8_t>(numberAt(4));
  };
  handlers_.forBeacon = [](BRLContextManager&, const auto& beacon) { beacon->snapshot(); };
  mainQueue_ = std::thread([this] { simulated_.realTime().run(); });
  auto* manager = BRLContextManager::Class::brlWithProximityUUID("FFF0");
  manager->setBeaconExitTime(kExitTime);
  manager->setBeaconGroupType(2);
  manager->setDelegate(&handlers_);
  manager->setBeaconType(1);
}

void Load::advertise(Purpose purpose, int beacon) {
  const auto number = static_cast<uint16_t>(beacon);
  const platform::BluetoothAddress address{{0xC0, 0, 0, purpose == foreign,
                                            static_cast<uint8_t>(number >> 8U),
                                            static_cast<uint8_t>(number & 0xFFU)}};
  auto packet = platform::sensorAdvertisement(address, CBUUID::fromShort(0x1000U + number),
                                              {.txPower = probeSent_, .battery = purpose});
  if (purpose != foreign) packet.serviceUUIDs.push_back(CBUUID::fromShort(0xFFF0));
  ++sent_.at(purpose);
  simulated_.radio().advertise(packet);
}

bool Load::feed(Purpose purpose) {
  const dispatch_time_t begin = now();
  for (int round = 0; now() - begin < kHalf; ++round) {
    for (int beacon = 0; beacon < kBeacons; ++beacon) advertise(purpose, beacon);
    advertise(foreign, round);
    std::this_thread::sleep_for(begin + (round + 1) * kRoundTime - now());
    // Of the unsteady half nobody knows how many are heard.
    if (purpose == steady && !await([&] { return sent(steady) - reported(steady) < kOnTheWay; }))
      return false;
  }
  return true;
}

// Queues keep their order, and what was heard for an earlier scan is not delivered. So a probe that arrives
// was heard by the scan that was asked for last, and nothing from before it is still on its way.
bool Load::awaitProbe() {
  ++probeSent_;
  return await([&] {
    advertise(probe, kBeacons);
    return probeReported_ == probeSent_;
  });
}

bool Load::await(const std::function<bool()>& condition) const {
  const dispatch_time_t begin = now();
  while (!condition()) {
    if (now() - begin > kPatience) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

void Load::end() {
  simulated_.realTime().stop();
  mainQueue_.join();
}

// One turn of what the application does beside listening; gives what it saw.
size_t readListAndLog(BRLContextManager& manager) {
  size_t seen = 0;
  manager.setIsLogSave(true);
  for (const auto& record : manager.rangeBeaconSensors()) seen += record->snapshot().uuid.has_value();
  manager.selectBeaconLogAllCountWithCompletionBlock([&](uint64_t count) { seen += count; });
  manager.selectBeaconLogAllWithCompletionBlock([&manager](const auto& rows) {
    if (rows && rows->size() > kRowsKept) manager.deleteBeaconLog();
  });
  manager.setIsLogSave(false);  // rows are saved one by one, which would be all that is measured
  return seen;
}

// Does something again and again on a thread of its own, until the end of its scope.
std::jthread beside(std::function<void()> turn) {
  return std::jthread([turn = std::move(turn)](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::sleep_for(milliseconds(5))) turn();
  });
}

void rangeOnce(platform::ScriptedLocationService& location) {
  static const platform::NSUUID proximityUUID;
  std::vector<platform::CLBeacon> beacons;
  for (uint16_t minor = 0; minor < 10; ++minor) beacons.push_back({proximityUUID, 1, minor, -60});
  location.ranged(std::move(beacons), nullptr, platform::ScriptedLocationService::Delivery::callingThread);
}

std::vector<std::shared_ptr<BRLBeaconDataModel>> sensorsOf(const BRLContextManager& manager) {
  std::vector<std::shared_ptr<BRLBeaconDataModel>> sensors;
  for (const auto& record : manager.rangeBeaconSensors()) {
    if (record->beaconType() == kBRLSensorBeacon) sensors.push_back(record);
  }
  return sensors;
}

TEST(ManagerUnderLoad, ReportsEveryAdvertisementOfASteadySearchAndLosesEveryBeaconThatFallsSilent) {
  // The manager's queues outlive the test, and with them what they call.
  static auto& load = *new Load;
  auto& manager = *dynamic_cast<BRLContextManager*>(BRLContextManager::Class::shareInstance());
  std::atomic<size_t> seen{0};
  manager.start();
  ASSERT_TRUE(load.awaitProbe());
  {
    const auto ranging = beside([] { rangeOnce(load.location()); });
    const auto application = beside([&] {
      manager.stop();
      manager.start();
      seen += readListAndLog(manager);
    });
    ASSERT_TRUE(load.feed(unsteady));
  }
  manager.start();
  ASSERT_TRUE(load.awaitProbe());

  // Every timer fires in this pause and finds its beacon lost already.
  manager.stop();
  std::this_thread::sleep_for(kPause);
  manager.start();
  ASSERT_TRUE(load.awaitProbe());
  {
    const auto ranging = beside([] { rangeOnce(load.location()); });
    const auto application = beside([&] { seen += readListAndLog(manager); });
    ASSERT_TRUE(load.feed(steady));
  }
  ASSERT_TRUE(load.awaitProbe());
  EXPECT_EQ(load.reported(steady), load.sent(steady));
  EXPECT_EQ(load.reported(foreign), 0U);
  EXPECT_GT(seen, 0U);
  EXPECT_TRUE(load.await([&] {
    const auto sensors = sensorsOf(manager);
    return std::ranges::all_of(sensors, [](const auto& sensor) { return sensor->status() == kBRLLost; });
  })) << "a beacon fell silent and was not lost";
  std::set<std::string> uuids;
  for (const auto& sensor : sensorsOf(manager)) uuids.insert(sensor->uuid().value());
  EXPECT_EQ(uuids.size(), kBeacons + 1U) << "the beacons and the probe";
  EXPECT_EQ(sensorsOf(manager).size(), uuids.size()) << "a beacon has two records";
  load.end();
}

}  // namespace
