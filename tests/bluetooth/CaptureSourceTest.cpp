#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/capture/CaptureSource.h"
#include "platform/bluetooth/capture/RadioStateEvent.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/bluetooth/CaptureVectors.h"

namespace platform {
namespace {

using namespace support;
using namespace std::chrono_literals;
using testing::ElementsAre;

std::string fileOf(const Data& octets) {
  const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string path = testing::TempDir() + "brenloft-" + test + ".btsnoop";
  std::ofstream(path, std::ios::binary) << textOf(DataView(octets));
  return path;
}

/// A capture with one report per time, in milliseconds.
Data captureOf(const std::vector<int64_t>& times) {
  Data file = btsnoopFile(1002);
  uint8_t nn = 0;
  for (const int64_t time : times) file = file + btsnoopRecord(h4(advertisingEvent(++nn)), time * 1000);
  return file;
}

std::string milliseconds(Date date) {
  return std::to_string(date.time_since_epoch().count() / 1000);
}

/// A replay on virtual time and what happened, in order.
class CaptureReplay : public testing::Test {
 protected:
  void open(const Data& capture) {
    CaptureSourceOptions options;
    options.path = fileOf(capture);
    options.onEnd = [this] { note("end"); };
    options.onDiagnostic = [this](const CaptureDiagnostic& diagnostic) {
      note(diagnostic.text.substr(0, 12));
    };
    options.onProgress = [this](uint64_t position, uint64_t size) { progress_.emplace_back(position, size); };
    source_ = *CaptureSource::make(options, dispatch_);
    source_->open(
        [this](const AdvertisingReport& report) {
          EXPECT_EQ(report.time, dispatch_->date());
          note("heard " + report.address.text().substr(15));
          if (onReport_) onReport_();
        },
        [this](const RadioState& state) { note("state " + std::to_string(static_cast<int>(state.state))); });
  }
  /// With the date and what time has passed, in milliseconds.
  void note(const std::string& what) {
    notes_.push_back(what + " at " + milliseconds(dispatch_->date()) + " after " +
                     std::to_string(dispatch_->now() / 1ms));
  }

  std::shared_ptr<VirtualDispatch> dispatch_ = VirtualDispatch::make();
  std::shared_ptr<CaptureSource> source_;
  std::vector<std::string> notes_;
  std::vector<std::pair<uint64_t, uint64_t>> progress_;
  std::function<void()> onReport_;
};

TEST_F(CaptureReplay, tellsTheStatesOfTheRadioThatWasRecorded) {
  const auto turned = [](CBManagerState state) { return h4(radioStateEvent({state, "why"})); };
  const auto heard = [](uint8_t nn) { return h4(advertisingEvent(nn)); };
  const Data capture = btsnoopFile(1002) + btsnoopRecord(heard(1), 1'000'000) +
                       btsnoopRecord(turned(CBManagerState::poweredOff), 2'000'000) +
                       btsnoopRecord(heard(2), 3'000'000) + btsnoopRecord(h4(hex("ff03010203")), 3'500'000) +
                       btsnoopRecord(turned(CBManagerState::poweredOn), 4'000'000) +
                       btsnoopRecord(heard(3), 5'000'000);
  open(capture);
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_, ElementsAre("state 5 at 1000 after 0", "heard 01 at 1000 after 0",
                                  "state 4 at 2000 after 1000", "state 5 at 4000 after 3000",
                                  "heard 03 at 5000 after 4000", "end at 5000 after 4000"));
}

TEST_F(CaptureReplay, followsTheClockOfTheCapture) {
  open(captureOf({5000, 6000, 5500, 5700, 5700}));
  EXPECT_EQ(milliseconds(dispatch_->date()), "5000");
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_, ElementsAre("state 5 at 5000 after 0"));
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_, ElementsAre("state 5 at 5000 after 0", "heard 01 at 5000 after 0",
                                  "heard 02 at 6000 after 1000", "heard 03 at 5500 after 1000",
                                  "heard 04 at 5700 after 1200", "heard 05 at 5700 after 1200",
                                  "end at 5700 after 1200"));
  ASSERT_FALSE(progress_.empty());
  EXPECT_EQ(progress_.back().first, progress_.back().second);
}

TEST_F(CaptureReplay, letsTimersFireBeforeTheRecordsThatComeAfterThem) {
  open(captureOf({1000, 9000, 12000}));
  const auto queue = dispatch_->createQueue("application");
  const auto timer = dispatch_->createTimer(queue);
  timer->setEventHandler([this] { note("timer"); });
  timer->resume();
  onReport_ = [&] {
    queue->async([&] { timer->setTimer(dispatch_->now() + 5s, DISPATCH_TIME_FOREVER, 0s); });
  };
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_,
              ElementsAre("state 5 at 1000 after 0", "heard 01 at 1000 after 0", "timer at 6000 after 5000",
                          "heard 02 at 9000 after 8000", "heard 03 at 12000 after 11000",
                          "end at 12000 after 11000", "timer at 17000 after 16000"));
}

TEST_F(CaptureReplay, endsAtTheLastRecordAfterWhatItSetGoing) {
  open(captureOf({1000}) + btsnoopRecord(hex("02"), 1'500'000, 1) + btsnoopRecord(hex("04"), 3'000'000));
  const auto queue = dispatch_->createQueue("application");
  std::function<void(int)> chain = [&](int left) {
    if (left == 0)
      note("chain");
    else
      queue->async([&, left] { chain(left - 1); });
  };
  dispatch_->after(2s, queue, [&] { chain(20); });
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_, ElementsAre("state 5 at 1000 after 0", "heard 01 at 1000 after 0",
                                  "its event is at 3000 after 2000", "chain at 3000 after 2000",
                                  "end at 3000 after 2000"));
}

TEST_F(CaptureReplay, hearsNothingWhileStoppedAndLosesNothingInARestart) {
  open(captureOf({0, 1000, 2000, 3000}));
  const auto queue = dispatch_->createQueue("application");
  dispatch_->after(1s, queue, [&] {
    source_->stopScan();
    queue->async([&] { queue->async([&] { source_->startScan({}); }); });
  });
  dispatch_->after(1500ms, queue, [&] { source_->stopScan(); });
  dispatch_->after(2500ms, queue, [&] { source_->startScan({}); });
  source_->startScan({});
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_,
              ElementsAre("state 5 at 0 after 0", "heard 01 at 0 after 0", "heard 02 at 1000 after 1000",
                          "heard 04 at 3000 after 3000", "end at 3000 after 3000"));
}

TEST_F(CaptureReplay, takesNoJumpOfTheClockForMoreThanADay) {
  open(btsnoopFile(1002) + btsnoopRecord(h4(advertisingEvent(1)), INT64_MIN / 2) +
       btsnoopRecord(h4(advertisingEvent(2)), INT64_MAX / 2) + btsnoopRecord(h4(advertisingEvent(3)), 0) +
       btsnoopRecord(h4(advertisingEvent(4)), INT64_MAX / 2));
  const auto start = dispatch_->now();
  source_->startScan({});
  dispatch_->runUntilIdle();
  EXPECT_THAT(notes_, testing::SizeIs(6));
  EXPECT_GE(dispatch_->now() - start, std::chrono::hours(24));
  EXPECT_LE(dispatch_->now() - start, std::chrono::hours(48));
}

TEST(CaptureSource, replaysOnRealTimeAtItsPaceOrAtOnce) {
  for (const bool paced : {true, false}) {
    const auto dispatch = RealTimeDispatch::make();
    std::vector<std::string> heard;
    CaptureSourceOptions options;
    options.path = fileOf(captureOf({0, 30, paced ? 60 : 86'400'000}));
    options.paced = paced;
    options.onEnd = [&] { dispatch->stop(); };
    const auto source = *CaptureSource::make(options, dispatch);
    const auto start = dispatch->now();
    source->startScan({});  // remembered
    source->open(
        [&](const AdvertisingReport& report) {
          heard.push_back(milliseconds(report.time));
          if (paced) {
            EXPECT_GE(dispatch->now() - start, report.time.time_since_epoch());
          }
        },
        [](const RadioState&) {});
    dispatch->run();
    source->close();
    EXPECT_THAT(heard, ElementsAre("0", "30", paced ? "60" : "86400000"));
  }
}

}  // namespace
}  // namespace platform
