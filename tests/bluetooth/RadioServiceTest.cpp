#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/Hex.h"
#include "tests/support/ScriptedReportSource.h"

using namespace platform;
using support::ScriptedReportSource;

namespace {

using Texts = std::vector<std::string>;

std::optional<std::vector<CBUUID>> services(const std::vector<uint32_t>& values) {
  std::vector<CBUUID> list;
  list.reserve(values.size());
  for (const uint32_t value : values) list.push_back(CBUUID::fromShort(value));
  return list;
}

Data advertising(const std::vector<uint32_t>& values, const char* name = nullptr) {
  ADBuilder builder;
  builder.serviceUUIDs(*services(values));
  if (name) builder.localName(name);
  return builder.octets();
}

/// Notes callbacks as "state 5" and "01 rssi name"; `onCallback` runs inside each.
class Listener : public CBCentralManagerDelegate {
 public:
  void centralManagerDidUpdateState(CBCentralManager& central) override {
    note("state " + std::to_string(static_cast<int>(central.state())));
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(CBCentralManager& /*central*/,
                                                                   const CBPeripheral& peripheral,
                                                                   const CBAdvertisementData& data,
                                                                   int64_t rssi) override {
    note((peripheral.identifier.empty() ? "anonymous" : peripheral.identifier.substr(15)) + " " +
         std::to_string(rssi) + " " + data.localName.value_or("-"));
  }
  Texts take() { return std::exchange(notes, {}); }

  Texts notes;
  std::function<void()> onCallback;
  dispatch_queue_t queue;

 private:
  void note(std::string text) {
    notes.push_back(std::move(text));
    EXPECT_TRUE(!queue || queue->isCurrent());
    if (onCallback) onCallback();
  }
};

class Central : public testing::Test {
 protected:
  std::unique_ptr<CBCentralManager> make(Listener& to) {
    to.queue = dispatch->createQueue("listener");
    return service->makeCentralManager(to, to.queue);
  }
  std::unique_ptr<CBCentralManager> makeScanning(Listener& to, const std::vector<uint32_t>& filter = {},
                                                 bool allowDuplicates = true) {
    auto central = make(to);
    dispatch->runDue();
    to.take();
    scan(*central, filter, allowDuplicates);
    return central;
  }
  static void scan(CBCentralManager& central, const std::vector<uint32_t>& filter = {},
                   bool allowDuplicates = true) {
    central.scanForPeripheralsWithServices_options(filter.empty() ? std::nullopt : services(filter),
                                                   {allowDuplicates});
  }
  void post(const char* device, const Data& data, AdvertisingKind kind = AdvertisingKind::connectable,
            int8_t rssi = -60) {
    source->hear(std::string("C0:00:00:00:00:") + device, kind, data, rssi);
  }
  void hear(const char* device, const Data& data, AdvertisingKind kind = AdvertisingKind::connectable,
            int8_t rssi = -60) {
    post(device, data, kind, rssi);
    dispatch->runDue();
  }
  void become(CBManagerState state) {
    source->setState(state);
    dispatch->runDue();
  }

  std::shared_ptr<VirtualDispatch> dispatch = VirtualDispatch::make();
  dispatch_queue_t sourceQueue = dispatch->createQueue("source");
  std::shared_ptr<ScriptedReportSource> source = std::make_shared<ScriptedReportSource>(sourceQueue);
  std::shared_ptr<RadioService> service = RadioService::make(source, dispatch);
  Listener listener;
};

TEST_F(Central, TellsTheSourceInTurnWhatIsWantedMeanwhile) {
  const auto central = makeScanning(listener);
  central->stopScan();
  source->takeNotes();
  source->onStart = [&] { central->stopScan(); };
  scan(*central);
  EXPECT_EQ(source->takeNotes(), (Texts{"scan", "stop"}));
}

TEST_F(Central, TellsItsFirstStateSoonAndEveryChange) {
  EXPECT_EQ(source->takeNotes(), Texts{});
  const auto central = make(listener);
  EXPECT_EQ(source->takeNotes(), Texts{"open"});
  EXPECT_EQ(central->state(), CBManagerState::unknown);
  EXPECT_EQ(listener.take(), Texts{});
  dispatch->runDue();
  EXPECT_EQ(listener.take(), Texts{"state 5"});
  source->setState(CBManagerState::poweredOff, "switched off");
  source->setState(CBManagerState::poweredOff, "blocked");
  dispatch->runDue();
  become(CBManagerState::unauthorized);
  EXPECT_EQ(listener.take(), (Texts{"state 4", "state 3"}));

  Listener second;
  second.queue = dispatch->mainQueue();
  const auto late = service->makeCentralManager(second, nullptr);
  EXPECT_EQ(second.take(), Texts{});
  dispatch->runDue();
  EXPECT_EQ(second.take(), Texts{"state 3"});
  EXPECT_EQ(listener.take(), Texts{});
  EXPECT_EQ(source->takeNotes(), Texts{});
}

// A day may have passed; what a sensor's scan response said then is no reading of now.
TEST_F(Central, MergesNothingOfAScanThatHasEnded) {
  const auto central = makeScanning(listener);
  hear("01", advertising({}, "old"), AdvertisingKind::scanResponse);
  hear("01", {});
  EXPECT_EQ(listener.take(), (Texts{"01 -60 old", "01 -60 old"}));
  central->stopScan();
  scan(*central);
  hear("01", {});
  EXPECT_EQ(listener.take(), Texts{"01 -60 -"});
}

TEST_F(Central, IgnoresAScanWhileTheRadioIsNotOnAndLosesItWithTheRadio) {
  const auto central = make(listener);
  scan(*central);
  dispatch->runDue();
  become(CBManagerState::resetting);
  scan(*central);
  become(CBManagerState::poweredOn);
  hear("01", {});
  EXPECT_EQ(listener.take(), (Texts{"state 5", "state 1", "state 5"}));
  scan(*central);
  become(CBManagerState::poweredOff);
  become(CBManagerState::poweredOn);
  hear("01", {});
  EXPECT_EQ(listener.take(), (Texts{"state 4", "state 5"}));
  EXPECT_EQ(source->takeNotes(), (Texts{"open", "scan", "stop"}));
}

TEST_F(Central, MayScanFromInsideItsStateCallback) {
  std::unique_ptr<CBCentralManager> central;
  listener.onCallback = [&] {
    if (central->state() == CBManagerState::poweredOn && listener.notes.back() == "state 5") scan(*central);
  };
  central = make(listener);
  dispatch->runDue();
  become(CBManagerState::resetting);
  become(CBManagerState::poweredOn);
  hear("01", {});
  EXPECT_EQ(listener.take(), (Texts{"state 5", "state 1", "state 5", "01 -60 -"}));
  EXPECT_EQ(source->takeNotes(), (Texts{"open", "scan", "stop", "scan"}));
}

TEST_F(Central, FiltersByServicesOfTheMergedAdvertisementInAnyWidth) {
  const auto central = makeScanning(listener, {0xFFE0, 0x180F});
  hear("01", advertising({0x180A}));
  hear("02", advertising({0x180A, 0x180F}));
  hear("03", advertising({}));
  hear("04", octetsFromHex("1107fb349b5f8000008000100000e0ff0000").value());
  hear("05", advertising({}, "response"), AdvertisingKind::scanResponse);
  hear("05", advertising({0xFFE0}));
  hear("05", advertising({}, "again"), AdvertisingKind::scanResponse);
  EXPECT_EQ(listener.take(), (Texts{"02 -60 -", "04 -60 -", "05 -60 response", "05 -60 again"}));
}

TEST_F(Central, WithoutDuplicatesDeliversAPeripheralOnceInAScanButAllThatIsAnonymous) {
  const auto central = makeScanning(listener, {0xFFE0}, false);
  hear("01", advertising({}));
  hear("01", advertising({0xFFE0}, "A"));
  hear("01", advertising({0xFFE0}, "B"));
  hear("02", advertising({0xFFE0}));
  hear("02", {}, AdvertisingKind::scanResponse);
  EXPECT_EQ(listener.take(), (Texts{"01 -60 A", "02 -60 -"}));
  scan(*central, {0xFFE0}, false);
  hear("01", advertising({0xFFE0}, "B"));
  hear("01", advertising({0xFFE0}, "B"));
  EXPECT_EQ(listener.take(), Texts{"01 -60 B"});
  for (int i = 0; i < 2; ++i)
    source->hear("00:00:00:00:00:00", AdvertisingKind::extended, advertising({0xFFE0}));
  dispatch->runDue();
  EXPECT_EQ(listener.take(), (Texts{"anonymous -60 -", "anonymous -60 -"}));
}

TEST_F(Central, DeliversNothingThatWasOnItsWayWhenTheScanStoppedOrRestarted) {
  const auto central = makeScanning(listener);
  const auto heardButNotDelivered = [&](const std::function<void()>& meanwhile) {
    post("01", {});
    sourceQueue->async(meanwhile);  // runs after the report was heard and before the listener's block
    listener.queue->async([&] { listener.notes.emplace_back("block"); });
    dispatch->runDue();
    return listener.take();
  };
  EXPECT_EQ(heardButNotDelivered([] {}).size(), 2U);
  EXPECT_EQ(heardButNotDelivered([&] { central->stopScan(); }), Texts{"block"});
  scan(*central);
  EXPECT_EQ(heardButNotDelivered([&] { scan(*central, {0xFFE0}); }), Texts{"block"});
  scan(*central);
  hear("02", {});
  EXPECT_EQ(listener.take(), Texts{"02 -60 -"});
}

TEST_F(Central, SharesTheRadioWithOthers) {
  Listener second;
  auto one = makeScanning(listener, {0xFFE0});
  auto two = makeScanning(second, {0x180F, 0xFFE0}, false);
  EXPECT_EQ(source->takeNotes(), (Texts{"open", "scan FFE0", "scan FFE0 180F"}));
  hear("01", advertising({0xFFE0}));
  hear("02", advertising({0x180F}));
  hear("01", advertising({0xFFE0}, "A"), AdvertisingKind::connectable, 127);
  EXPECT_EQ(listener.take(), (Texts{"01 -60 -", "01 127 A"}));
  EXPECT_EQ(second.take(), (Texts{"01 -60 -", "02 -60 -"}));

  scan(*two);
  EXPECT_EQ(source->takeNotes(), Texts{"scan"});
  two->stopScan();
  EXPECT_EQ(source->takeNotes(), Texts{"scan FFE0"});
  hear("01", advertising({0xFFE0}));
  EXPECT_EQ(second.take(), Texts{});
  two->stopScan();
  scan(*one, {0xFFE0});
  EXPECT_EQ(source->takeNotes(), Texts{});
  one.reset();
  EXPECT_EQ(source->takeNotes(), Texts{"stop"});
}

TEST_F(Central, CallsNothingOnceDestroyed) {
  auto central = makeScanning(listener);
  post("01", {});
  source->setState(CBManagerState::poweredOff);
  sourceQueue->async([&] { central.reset(); });
  dispatch->runDue();
  hear("02", {});
  EXPECT_EQ(listener.take(), Texts{});
}

TEST_F(Central, MayBeDestroyedInsideACallback) {
  auto central = makeScanning(listener);
  listener.onCallback = [&] { central.reset(); };
  post("01", {});
  post("02", {});
  dispatch->runDue();
  EXPECT_EQ(listener.take(), Texts{"01 -60 -"});
}

TEST_F(Central, KeepsTheServiceOpenAsLongAsItLives) {
  auto central = makeScanning(listener);
  service.reset();
  hear("01", {});
  EXPECT_EQ(listener.take(), Texts{"01 -60 -"});
  source->takeNotes();
  central.reset();
  EXPECT_EQ(source->takeNotes(), (Texts{"stop", "close"}));
}

TEST_F(Central, DropsNothingOnVirtualTime) {
  const auto central = makeScanning(listener);
  for (int i = 0; i < 10'007; ++i) post("01", {});
  dispatch->runDue();
  EXPECT_EQ(listener.take().size(), 10'007U);
}

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
  const auto source = std::make_shared<ScriptedReportSource>(dispatch->createQueue("source"));
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

// The source is not held up, and the memory is not filled. What is new of a sender takes the place of what it
// said before, and without such a place it is dropped.
TEST(RadioServiceOnThreads, KeepsTheNewestOfEachSenderForASlowDelegateAndLogsWhatItDrops) {
  const auto dispatch = RealTimeDispatch::make();
  const auto radio = dispatch->createQueue("source");
  const auto source = std::make_shared<ScriptedReportSource>(radio);
  std::vector<std::string> lines;
  const auto service =
      RadioService::make(source, dispatch, [&](std::string_view line) { lines.emplace_back(line); });
  Listener slow;
  const dispatch_queue_t queue = dispatch->createQueue("slow");
  auto manager = service->makeCentralManager(slow, queue);
  const auto pass = [](const dispatch_queue_t& through) {
    std::promise<void> isDone;
    through->async([&] { isDone.set_value(); });
    isDone.get_future().wait();
  };
  const auto hear = [&](const char* device, int8_t rssi, int times = 1) {
    for (int i = 0; i < times; ++i)
      source->hear(std::string("C0:00:00:00:00:") + device, AdvertisingKind::connectable, {}, rssi);
  };
  pass(radio);
  pass(queue);
  manager->scanForPeripheralsWithServices_options(std::nullopt, {true});
  for (int round = 0; round < 2; ++round) {
    std::promise<void> mayGoOn;
    queue->async([&] { mayGoOn.get_future().wait(); });
    hear("01", -1, 9'996);
    hear("02", -2);
    hear("03", -3);
    hear("02", -4);
    hear("01", -5);
    hear("03", -6);
    hear("02", -7, 3);
    hear("04", -8, 7);
    hear("01", -9);
    pass(radio);
    EXPECT_THAT(lines,
                testing::ElementsAre(testing::HasSubstr("what exceeds 10000 waiting ones is dropped")));
    mayGoOn.set_value();
    pass(queue);
    const Texts heard = slow.take();
    EXPECT_EQ(heard.size(), 10'000U + (round == 0));  // the first state came before
    EXPECT_EQ(Texts(heard.end() - 5, heard.end()),
              (Texts{"01 -1 -", "02 -2 -", "03 -6 -", "02 -7 -", "01 -9 -"}));
  }
  manager.reset();
  EXPECT_THAT(lines.back(), testing::HasSubstr("14 reports were dropped"));
}

}  // namespace
