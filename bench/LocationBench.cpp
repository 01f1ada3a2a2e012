// iBeacon frames a second through the location service, with a number of known beacons: from a central's
// advertisement to the region's state, and from a radio's report on virtual time to the ranging reports.

#include <cstdint>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/SmallRun.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/location/BeaconLocationService.h"
#include "platform/simulated/BeaconWorld.h"
#include "platform/simulated/SimulatedAdvertisement.h"
#include "platform/simulated/SimulatedRadio.h"

namespace {

using brenloft::bench::inSmallRun;
using platform::NSUUID;
using std::chrono::milliseconds;

const NSUUID kUUID(NSUUID::Octets{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});

/// A central whose advertisements the benchmark calls out itself.
class DirectBluetooth final : public platform::BluetoothService {
 public:
  class Central final : public platform::CBCentralManager {
   public:
    platform::CBManagerState state() const override { return platform::CBManagerState::poweredOn; }
    void scanForPeripheralsWithServices_options(const std::optional<std::vector<platform::CBUUID>>&,
                                                const platform::CBCentralManagerScanOptions&) override {}
    void stopScan() override {}
  };

  std::unique_ptr<platform::CBCentralManager> makeCentralManager(platform::CBCentralManagerDelegate& to,
                                                                 platform::dispatch_queue_t) override {
    delegate = &to;
    auto made = std::make_unique<Central>();
    central = made.get();
    return made;
  }

  platform::CBCentralManagerDelegate* delegate = nullptr;
  platform::CBCentralManager* central = nullptr;
};

class CountingDelegate final : public platform::CLLocationManagerDelegate {
 public:
  std::size_t ranged = 0;

  void locationManager_didChangeAuthorizationStatus(platform::CLLocationManager&, int32_t) override {}
  void locationManager_didStartMonitoringForRegion(platform::CLLocationManager&,
                                                   const platform::CLRegionPtr&) override {}
  void locationManager_monitoringDidFailForRegion_withError(platform::CLLocationManager&,
                                                            const platform::CLRegionPtr&,
                                                            const platform::CLError&) override {}
  void locationManager_didFailWithError(platform::CLLocationManager&, const platform::CLError&) override {}
  void locationManager_didEnterRegion(platform::CLLocationManager&, const platform::CLRegionPtr&) override {}
  void locationManager_didExitRegion(platform::CLLocationManager&, const platform::CLRegionPtr&) override {}
  void locationManager_didDetermineState_forRegion(platform::CLLocationManager&, platform::CLRegionState,
                                                   const platform::CLRegionPtr&) override {}
  void locationManager_didRangeBeacons_inRegion(platform::CLLocationManager&,
                                                const std::vector<platform::CLBeacon>& beacons,
                                                const platform::CLBeaconRegionPtr&) override {
    ranged += beacons.size();
  }
};

/// A manager that monitors and ranges one UUID.
struct Application {
  Application(const std::shared_ptr<platform::BluetoothService>& bluetooth,
              const std::shared_ptr<platform::VirtualDispatch>& clock)
      : service(platform::makeBeaconLocationService({.bluetooth = bluetooth, .dispatch = clock})),
        manager(service->makeLocationManager()) {
    const auto region = std::make_shared<platform::CLBeaconRegion>(kUUID, "R");
    manager->setDelegate(&delegate);
    manager->startMonitoringForRegion(region);
    manager->startRangingBeaconsInRegion(region);
    clock->advance({});
  }

  CountingDelegate delegate;
  std::shared_ptr<platform::BeaconLocationService> service;
  std::unique_ptr<platform::CLLocationManager> manager;
};

platform::iBeaconFrame frameOf(int64_t beacon) {
  return {kUUID, static_cast<uint16_t>(beacon / 100), static_cast<uint16_t>(beacon)};
}

void framesThroughTheService(benchmark::State& state) {
  const auto clock = platform::VirtualDispatch::make();
  const auto bluetooth = std::make_shared<DirectBluetooth>();
  const Application application(bluetooth, clock);
  std::vector<platform::CBAdvertisementData> air(static_cast<std::size_t>(state.range(0)));
  for (std::size_t i = 0; i < air.size(); ++i)
    air[i].manufacturerData = platform::iBeaconManufacturerData(frameOf(static_cast<int64_t>(i)));
  const platform::CBPeripheral sender{"C0:00:00:00:00:01"};

  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    bluetooth->delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(*bluetooth->central,
                                                                                     sender, air[next], -60);
    next = next + 1 == air.size() ? 0 : next + 1;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(framesThroughTheService)
    ->Apply(inSmallRun<100'000>)
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000);

// One iteration is a tenth of a second of air with every beacon heard once, ranging reports included.
void reportsFromRadioToRanging(benchmark::State& state) {
  const auto clock = platform::VirtualDispatch::make();
  const auto radio = platform::SimulatedRadio::make(clock);
  const Application application(platform::RadioService::make(radio, clock), clock);
  std::vector<platform::SimulatedAdvertisement> air;
  for (int64_t i = 0; i < state.range(0); ++i)
    air.push_back(platform::iBeaconAdvertisement(
        {{0xC1, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}, true}, frameOf(i)));

  for ([[maybe_unused]] auto _ : state) {
    for (const auto& advertisement : air) radio->advertise(advertisement);
    clock->advance(milliseconds(100));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(reportsFromRadioToRanging)->Apply(inSmallRun<30>)->Arg(10)->Arg(100)->Arg(1000);

void reportsOfASimulatedWorld(benchmark::State& state) {
  platform::BeaconWorld world({.sensors = static_cast<uint32_t>(state.range(0)), .iBeacons = 10});
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(world.next());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(reportsOfASimulatedWorld)->Apply(inSmallRun<20'000>)->Arg(10)->Arg(1000);

}  // namespace
