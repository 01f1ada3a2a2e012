#include <atomic>
#include <future>
#include <thread>

#include "LocationFixture.h"

namespace {

using platform::SimulatedPlatform;
using platform::SimulatedPlatformOptions;

/// Counts, from whatever thread.
class CountingListener final : public platform::CLLocationManagerDelegate {
 public:
  std::atomic<int> calls = 0;
  std::function<void()> onCall = [] {};

  void locationManager_didChangeAuthorizationStatus(platform::CLLocationManager&, int32_t) override {
    count();
  }
  void locationManager_didStartMonitoringForRegion(platform::CLLocationManager&,
                                                   const CLRegionPtr&) override {
    count();
  }
  void locationManager_monitoringDidFailForRegion_withError(platform::CLLocationManager&, const CLRegionPtr&,
                                                            const platform::CLError&) override {
    count();
  }
  void locationManager_didFailWithError(platform::CLLocationManager&, const platform::CLError&) override {
    count();
  }
  void locationManager_didEnterRegion(platform::CLLocationManager&, const CLRegionPtr&) override { count(); }
  void locationManager_didExitRegion(platform::CLLocationManager&, const CLRegionPtr&) override { count(); }
  void locationManager_didDetermineState_forRegion(platform::CLLocationManager&, CLRegionState,
                                                   const CLRegionPtr&) override {
    count();
  }
  void locationManager_didRangeBeacons_inRegion(platform::CLLocationManager&, const std::vector<CLBeacon>&,
                                                const platform::CLBeaconRegionPtr&) override {
    count();
  }

 private:
  void count() {
    ++calls;
    onCall();
  }
};

SimulatedPlatformOptions realTime() {
  SimulatedPlatformOptions options;
  options.clock = SimulatedPlatformOptions::Clock::realTime;
  return options;
}

// Everything at once: frames on the radio's queue, operations and authorization changes on two threads,
// managers that come and go, callbacks on the main queue.
TEST(LocationThreads, OperationsFromSeveralThreadsMeetFramesAndCallbacks) {
  SimulatedPlatform simulated(realTime());
  auto& location = simulated.beaconLocation();
  std::atomic<bool> isDone = false;
  std::thread mainQueue([&] { simulated.realTime().run(); });
  std::thread air([&] {
    for (uint16_t i = 0; !isDone; ++i) {
      simulated.radio().advertise(
          platform::iBeaconAdvertisement({}, {kUUID, 1, static_cast<uint16_t>(i % 50)}));
      if (i % 64 == 0) std::this_thread::yield();
    }
  });
  std::thread user([&] {
    while (!isDone) {
      location.setAuthorizationStatus(CLAuthorizationStatus::denied);
      location.setAuthorizationStatus(CLAuthorizationStatus::authorizedAlways);
      std::this_thread::sleep_for(milliseconds(5));
    }
  });

  CountingListener listener;
  const auto region = beaconRegion("R", kUUID);
  for (int round = 0; round < 100; ++round) {
    const auto manager = location.makeLocationManager();
    manager->setDelegate(&listener);
    manager->startMonitoringForRegion(region);
    manager->startRangingBeaconsInRegion(region);
    manager->requestStateForRegion(region);
    EXPECT_LE(manager->monitoredRegions().size(), 1U);
    std::this_thread::sleep_for(milliseconds(2));
    manager->stopMonitoringForRegion(region);
  }
  isDone = true;
  air.join();
  user.join();
  simulated.realTime().stop();
  mainQueue.join();
  EXPECT_GT(listener.calls, 0);
}

TEST(LocationThreads, NoCallbackBeginsOrRunsOnceAManagerIsGone) {
  SimulatedPlatform simulated(realTime());
  std::thread mainQueue([&] { simulated.realTime().run(); });
  for (int round = 0; round < 200; ++round) {
    auto listener = std::make_unique<CountingListener>();
    auto manager = simulated.beaconLocation().makeLocationManager();
    manager->setDelegate(listener.get());
    for (int i = 0; i < 20; ++i) manager->requestStateForRegion(beaconRegion("R", kUUID));
    if (round % 2 == 0) std::this_thread::yield();
    manager.reset();
    listener.reset();
  }
  simulated.realTime().stop();
  mainQueue.join();
}

// The last manager takes the service with it, while the service's queue is busy with the radio's states.
TEST(LocationThreads, AServiceMayGoWhileItsCentralReports) {
  SimulatedPlatform simulated(realTime());
  std::atomic<bool> isDone = false;
  std::thread mainQueue([&] { simulated.realTime().run(); });
  std::thread air([&] {
    while (!isDone) {
      simulated.radio().setState(platform::CBManagerState::poweredOff);
      simulated.radio().setState(platform::CBManagerState::poweredOn);
    }
  });
  for (int round = 0; round < 2000; ++round) {
    auto service = platform::makeBeaconLocationService(
        {.bluetooth = simulated.services().bluetooth, .dispatch = simulated.services().dispatch});
    const auto manager = service->makeLocationManager();
    service.reset();
    manager->startMonitoringForRegion(beaconRegion("R", kUUID));
    std::this_thread::sleep_for(std::chrono::microseconds(round % 300));
  }
  isDone = true;
  air.join();
  simulated.realTime().stop();
  mainQueue.join();
}

TEST(LocationThreads, TheAuthorizationIsStoredInTheOrderOfItsChanges) {
  SimulatedPlatform simulated;
  std::promise<void> storing;
  std::promise<void> overtaken;
  CLAuthorizationStatus stored{};
  const auto service = platform::makeBeaconLocationService(
      {.bluetooth = simulated.services().bluetooth,
       .dispatch = simulated.services().dispatch,
       .storeAuthorization = [&](CLAuthorizationStatus status) {
         if (status == CLAuthorizationStatus::denied) {
           storing.set_value();
           overtaken.get_future().wait_for(milliseconds(50));  // no later change may come between
         }
         stored = status;
         if (status == CLAuthorizationStatus::restricted) overtaken.set_value();
       }});
  std::thread first([&] { service->setAuthorizationStatus(CLAuthorizationStatus::denied); });
  storing.get_future().wait();
  service->setAuthorizationStatus(CLAuthorizationStatus::restricted);
  first.join();
  EXPECT_EQ(stored, service->authorizationStatus());
}

}  // namespace
