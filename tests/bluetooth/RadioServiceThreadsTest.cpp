#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tests/support/ScriptedReportSource.h"

using namespace platform;

namespace {

class Counter : public CBCentralManagerDelegate {
 public:
  void centralManagerDidUpdateState(CBCentralManager& central) override {
    central.scanForPeripheralsWithServices_options(std::nullopt, {true});
    EXPECT_FALSE(isOver);
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(CBCentralManager& central,
                                                                   const CBPeripheral& /*peripheral*/,
                                                                   const CBAdvertisementData& data,
                                                                   int64_t /*rssi*/) override {
    EXPECT_EQ(data.localName, "A");
    if (++heard % 7 == 0) central.scanForPeripheralsWithServices_options(std::nullopt, {true});
    EXPECT_FALSE(isOver);
  }

  std::atomic<int> heard = 0;
  std::atomic<bool> isOver = false;
};

// Managers come, scan, stop and go on one thread while a radio on another reports and loses its power.
TEST(RadioServiceOnThreads, CallsNoDelegateOfADestroyedManager) {
  const auto dispatch = RealTimeDispatch::make();
  const auto source = std::make_shared<support::ScriptedReportSource>(dispatch->createQueue("source"));
  const auto service = RadioService::make(source, dispatch);
  Counter lasting;
  const dispatch_queue_t queue = dispatch->createQueue("lasting");
  const auto manager = service->makeCentralManager(lasting, queue);

  const Data name = ADBuilder().localName("A").octets();
  std::atomic<bool> isDone = false;
  std::thread radio([&] {
    for (int i = 0; !isDone; ++i) {
      source->hear(i % 2 ? "C0:00:00:00:00:01" : "C0:00:00:00:00:02", AdvertisingKind::connectable, name);
      if (i % 50 == 0) source->setState(CBManagerState::resetting);
      if (i % 50 == 5) source->setState(CBManagerState::poweredOn);
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < 200 || lasting.heard == 0; ++round) {
    Counter passing;
    {
      const auto brief = service->makeCentralManager(passing, queue);
      brief->scanForPeripheralsWithServices_options(std::nullopt, {round % 2 == 0});
      if (round % 3 == 0) brief->stopScan();
      std::this_thread::yield();
    }
    passing.isOver = true;
  }
  isDone = true;
  radio.join();
}

// The source is not held up, and the memory is not filled.
TEST(RadioServiceOnThreads, DropsWhatASlowDelegateDoesNotTakeAndTells) {
  const auto dispatch = RealTimeDispatch::make();
  const auto radio = dispatch->createQueue("source");
  const auto source = std::make_shared<support::ScriptedReportSource>(radio);
  std::vector<std::string> lines;
  const auto service =
      RadioService::make(source, dispatch, [&](std::string_view line) { lines.emplace_back(line); });
  Counter slow;
  const dispatch_queue_t queue = dispatch->createQueue("slow");
  auto manager = service->makeCentralManager(slow, queue);
  const auto pass = [](const dispatch_queue_t& through) {
    std::promise<void> isDone;
    through->async([&] { isDone.set_value(); });
    isDone.get_future().wait();
  };
  pass(radio);
  pass(queue);
  std::promise<void> mayGoOn;
  queue->async([&] { mayGoOn.get_future().wait(); });
  for (int i = 0; i < 10'007; ++i)
    source->hear("C0:00:00:00:00:01", AdvertisingKind::connectable, ADBuilder().localName("A").octets());
  pass(radio);
  EXPECT_THAT(lines, testing::ElementsAre(testing::HasSubstr("what exceeds 10000 waiting ones is dropped")));
  mayGoOn.set_value();
  manager.reset();
  EXPECT_THAT(lines.back(), testing::HasSubstr("7 reports were dropped"));
}

}  // namespace
