#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/NativeRadio.h"
#include "platform/bluetooth/capture/CaptureSource.h"
#include "platform/bluetooth/hci/H4Transports.h"
#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/bluetooth/radios/ScanWatchdog.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/simulated/SimulatedRadio.h"
#include "platform/simulated/SimulatedWorldSource.h"
#include "tests/bluetooth/BlueZFakeDaemon.h"
#include "tests/bluetooth/CaptureVectors.h"
#include "tests/foundation/TemporaryFolder.h"
#include "tests/support/H4Server.h"
#include "tests/support/ScriptedController.h"
#include "tests/support/ScriptedReportSource.h"

// What holds for every source of reports, on virtual time and on threads. A new source adds its air.

using namespace platform;
using namespace std::chrono_literals;
using namespace support;

namespace {

using Source = std::shared_ptr<AdvertisingReportSource>;

/// What the sources of one kind hear, and their clock.
struct Air {
  explicit Air(bool isVirtual) : clock(isVirtual ? VirtualDispatch::make() : nullptr), dispatch(clock) {
    if (!clock) dispatch = RealTimeDispatch::make();
  }
  bool comesTrue(const std::function<bool()>& condition) const {
    for (int i = 0; i < 10'000 && !condition(); ++i) pass();
    return condition();
  }
  /// Long enough for what is under way.
  void passAWhile() const {
    for (int i = 0; i < 50; ++i) pass();
  }
  void pass() const {
    advertise();
    clock ? clock->advance(100ms) : std::this_thread::sleep_for(100us);
  }

  std::shared_ptr<VirtualDispatch> clock;  ///< null on real time
  std::shared_ptr<DispatchService> dispatch;
  std::chrono::seconds silence{60};
  std::function<Source(const dispatch_queue_t& queue)> make;  ///< on a queue of its own without one
  std::function<void()> advertise = [] {};                    ///< where time alone does not bring something
  std::function<bool()> isScanning = [] { return false; };    ///< as the radio was told
  std::function<bool()> hasStopped = [this] { return !isScanning(); };  ///< by a source that has been closed
};

/// A scripted controller on virtual time, one behind a socket on real time.
HCITransportFactory putController(Air& air) {
  static const Data report = ControllerModel::legacyReport(1, {});
  if (air.clock) {
    const auto controller = std::make_shared<ScriptedController>(air.clock, ControllerModel::Traits());
    air.isScanning = [controller] { return controller->model().scan().has_value(); };
    air.advertise = [controller] { controller->send(report + report + report); };  // asked for or not
    return controller->factory();
  }
  const auto server = std::make_shared<H4Server>();
  air.isScanning = [server] { return server->isScanning(); };
  air.hasStopped = [&air] { return air.comesTrue([&air] { return !air.isScanning(); }); };
  air.advertise = [server] {
    if (server->isScanning()) server->sendSome(report);
  };
  return [server] { return hci::makeH4UnixTransport({server->address().substr(8)}); };
}

void putDriver(Air& air) {
  air.make = [&air, transport = putController(air)](const auto& queue) {
    return HCIDriver::make({air.dispatch, transport, {}, queue});
  };
}
void putWatchdog(Air& air) {
  putDriver(air);
  air.make = [&air, make = air.make](const auto& queue) {
    return makeScanWatchdog(
        {.makeSource = make, .dispatch = air.dispatch, .queue = queue, .silence = air.silence});
  };
}
void putNativeRadio(Air& air) {
  putWatchdog(air);
  air.make = [&air, make = air.make](const auto&) {
    const auto look = [make](const auto& options) { return RadioSourceResult(make(options.queue)); };
    return makeNativeRadio(air.dispatch, {}, look);
  };
}

void putDaemon(Air& air) {
  const auto bus = std::make_shared<PrivateBus>();
  bus->start();
  const std::shared_ptr<FakeBlueZ> daemon(new FakeBlueZ(bus->address()), [bus](auto* it) { delete it; });
  daemon->addAdapter({});
  daemon->start();
  air.make = [&air, bus](const auto&) {
    return makeBlueZSource({.busAddress = bus->address(), .dispatch = air.dispatch, .firstPause = 5ms});
  };
  air.advertise = [daemon] {
    daemon->deviceAppears("/org/bluez/hci0/dev_1", {{"Address", sdbus::Variant("C0:00:00:00:00:01")},
                                                    {"RSSI", sdbus::Variant(int16_t{-60})}});
  };
  air.isScanning = [daemon] {
    return daemon->count("hci0.StartDiscovery") > daemon->count("hci0.StopDiscovery");
  };
}

void putCapture(Air& air) {
  const auto folder = std::make_shared<test::TemporaryFolder>();
  Data file = btsnoopFile(1002);
  for (int i = 0; i < 3000; ++i) file = file + btsnoopRecord(h4(advertisingEvent(1)), int64_t{i} * 10'000);
  test::writeFile(folder->path() / "capture", std::string(textOf(DataView(file))));
  air.make = [&air, folder](const auto&) {
    return *CaptureSource::make({.path = folder->file("capture"), .paced = true}, air.dispatch);
  };
}

void putWorld(Air& air) {
  const BeaconWorldOptions options{.sensors = 20, .interval = 20ms};
  air.make = [&air, options](const auto&) {
    return makeSimulatedWorldSource(air.dispatch, options, DISPATCH_TIME_FOREVER);
  };
}

void putSimulatedRadio(Air& air) {
  const auto newest = std::make_shared<std::weak_ptr<SimulatedRadio>>();
  air.make = [&air, newest](const auto&) {
    const auto radio = SimulatedRadio::make(air.dispatch);
    *newest = radio;
    return radio;
  };
  air.advertise = [newest] {
    if (const auto radio = newest->lock()) radio->advertise({});
  };
}

struct Kind {
  const char* name;
  void (*put)(Air& air);
};
constexpr Kind kKinds[] = {
    {"Driver", putDriver},   {"Watchdog", putWatchdog}, {"NativeRadio", putNativeRadio},
    {"Capture", putCapture}, {"World", putWorld},       {"SimulatedRadio", putSimulatedRadio}};
constexpr Kind kKindsOnThreadsOnly[] = {{"BlueZ", putDaemon}};

/// A source and what it told.
class ReportSource : public testing::TestWithParam<std::tuple<Kind, bool>> {
 protected:
  void SetUp() override {
    if (needsBus_ && !PrivateBus::isAvailable()) GTEST_SKIP() << "no dbus-daemon";
    std::get<Kind>(GetParam()).put(air_);
    renew();
  }
  void TearDown() override {
    if (source_) source_->close();
  }

  void open() {
    const auto called = [this](std::atomic<int>& count) {
      EXPECT_FALSE(isClosed_ || isInside_.exchange(true));
      ++count;
      if (inHandler_) inHandler_();
      isInside_ = false;
    };
    source_->open([this, called](const AdvertisingReport&) { called(reports_); },
                  [this, called](const RadioState&) { called(states_); });
  }
  void close() {
    source_->close();
    isClosed_ = true;
  }
  bool hearsMore() {
    return air_.comesTrue([this, before = reports_.load()] { return reports_ > before; });
  }
  bool endsScanning() {
    return air_.comesTrue([this] { return !air_.isScanning(); });
  }
  /// Another source in the same air.
  void renew() {
    source_ = air_.make(nullptr);
    states_ = reports_ = 0;
    isClosed_ = false;
  }

  const bool needsBus_ = std::get<Kind>(GetParam()).put == putDaemon;
  Air air_{std::get<bool>(GetParam())};
  std::atomic<int> states_ = 0, reports_ = 0;
  std::atomic<bool> isClosed_ = false, isInside_ = false;
  std::function<void()> inHandler_;
  Source source_;
};

const auto nameOf = [](const auto& tested) {
  return std::get<Kind>(tested.param).name + std::string(std::get<bool>(tested.param) ? "" : "OnThreads");
};
INSTANTIATE_TEST_SUITE_P(All, ReportSource, testing::Combine(testing::ValuesIn(kKinds), testing::Bool()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Bus, ReportSource,
                         testing::Combine(testing::ValuesIn(kKindsOnThreadsOnly), testing::Values(false)),
                         nameOf);

TEST_P(ReportSource, HearsWhileAScanLastsAndDoesWhatWasAskedForLast) {
  open();
  ASSERT_TRUE(air_.comesTrue([this] { return states_ > 0; }));
  air_.passAWhile();
  EXPECT_EQ(reports_, 0);
  for (int round = 0; round < 3; ++round) {
    source_->startScan({});
    EXPECT_TRUE(hearsMore());
    for (int i = 0; i <= round; ++i) {
      source_->startScan({});
      source_->stopScan();
    }
    air_.clock ? air_.clock->runDue() : air_.passAWhile();  // what is under way
    const int before = reports_;
    EXPECT_TRUE(endsScanning());
    air_.passAWhile();
    EXPECT_EQ(reports_, before);
  }
}

TEST_P(ReportSource, OnceClosedItIsSilentAndItsRadioHasBeenStopped) {
  const std::function<void()> moments[] = {[] {}, [&] { open(); },
                                           [&] { open(), air_.pass(), source_->startScan({}); },
                                           [&] {
                                             source_->startScan({});  // remembered
                                             open();
                                             EXPECT_TRUE(hearsMore());
                                           }};
  for (const auto& reach : moments) {
    SCOPED_TRACE(&reach - moments);
    reach();
    close();
    EXPECT_TRUE(air_.hasStopped());
    close();
    source_->startScan({});
    if (&reach == moments) open();  // too late
    air_.passAWhile();
    EXPECT_FALSE(air_.isScanning());
    renew();
  }
}

TEST_P(ReportSource, ClosedInsideAHandlerItEndsWithIt) {
  for (const bool isReport : {false, true}) {
    SCOPED_TRACE(isReport);
    inHandler_ = [&] {
      if (isReport == (reports_ > 0)) close();
    };
    source_->startScan({});
    open();
    EXPECT_TRUE(air_.comesTrue([this] { return isClosed_.load(); }));
    EXPECT_TRUE(endsScanning());
    air_.passAWhile();
    renew();
  }
}

TEST_P(ReportSource, EndsWithItsLastReference) {
  for (int round = 0; round < 5; ++round) {
    open();
    source_->startScan({});
    EXPECT_TRUE(hearsMore());
    const std::weak_ptr ended(source_);
    source_.reset();
    EXPECT_TRUE(endsScanning());
    // A handler that ran meanwhile has kept it.
    EXPECT_TRUE(air_.comesTrue([&] { return ended.expired() && !isInside_; }));
    renew();
  }
}

// A sanitizer sees a handler that still runs.
TEST_P(ReportSource, MayBeClosedWhateverIsUnderWay) {
  for (int round = 0; round < (needsBus_ ? 4 : 30); ++round) {
    auto calls = std::make_unique<std::atomic<int>>(0);
    const auto call = [&calls, &source = *source_, closes = round % 4 == 3](const auto&) {
      if (++*calls == 5 && closes) source.close();
    };
    source_->open(call, call);
    std::thread other;
    const auto toggle = [source = source_] {
      for (int i = 0; i < 20; ++i) i % 2 == 0 ? source->startScan({}) : source->stopScan();
      source->startScan({});
    };
    air_.clock ? toggle() : void(other = std::thread(toggle));
    for (int i = 0; *calls < round % 8 && i < 1000; ++i) air_.pass();
    source_->close();
    calls.reset();
    EXPECT_TRUE(air_.hasStopped());
    if (other.joinable()) other.join();
    // Without any patience a watchdog opens its radio all the time, within no time where time stands still.
    if (!air_.clock) air_.silence = std::chrono::seconds(round % 2 * 60);
    renew();
  }
}

TEST(NativeRadio, BeginsNoScanThatWasEndedWhileTheRadioWasOpened) {
  const auto dispatch = VirtualDispatch::make();
  const auto found = std::make_shared<ScriptedReportSource>(dispatch->createQueue("radio"));
  const auto native = makeNativeRadio(dispatch, {}, [&](const auto&) { return RadioSourceResult(found); });
  found->onOpen = [&] { native->stopScan(); };
  native->startScan({});
  native->open([](const auto&) {}, [](const auto&) {});
  dispatch->runDue();
  EXPECT_NE(found->takeNotes().back(), "scan");
  native->close();
}

}  // namespace
