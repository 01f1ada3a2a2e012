#include <atomic>
#include <future>
#include <thread>

#include "LocationFixture.h"

namespace {

class LocationThreads : public testing::Test {
 protected:
  ~LocationThreads() override {
    simulated.realTime().stop();
    mainQueue.join();
  }

  platform::SimulatedPlatform simulated{{.clock = platform::SimulatedPlatformOptions::Clock::realTime}};
  std::thread mainQueue{[this] { simulated.realTime().run(); }};
};

// Everything at once: frames on the radio's queue, operations and authorization changes on two threads,
// managers that come and go, callbacks on the main queue.
TEST_F(LocationThreads, OperationsFromSeveralThreadsMeetFramesAndCallbacks) {
  auto& location = simulated.beaconLocation();
  std::atomic<bool> isDone = false;
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

  std::size_t told = 0;
  const auto region = beaconRegion("R", kUUID);
  for (int round = 0; round < 200; ++round) {
    const auto listener =
        std::make_unique<LocationListener>();  // nobody may call it once its manager is gone
    auto manager = location.makeLocationManager();
    manager->setDelegate(listener.get());
    manager->startMonitoringForRegion(region);
    manager->startRangingBeaconsInRegion(region);
    manager->requestStateForRegion(region);
    EXPECT_LE(manager->monitoredRegions().size(), 1U);
    std::this_thread::sleep_for(milliseconds(round % 3));
    if (round % 2 == 0) manager->stopMonitoringForRegion(region);
    manager.reset();
    told += listener->lines.size();
  }
  isDone = true;
  air.join();
  user.join();
  EXPECT_GT(told, 0U);
}

// The last manager takes the service with it, while the service's queue is busy with the radio's states.
TEST_F(LocationThreads, AServiceMayGoWhileItsCentralReports) {
  std::atomic<bool> isDone = false;
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
}

TEST_F(LocationThreads, TheAuthorizationIsStoredInTheOrderOfItsChanges) {
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
