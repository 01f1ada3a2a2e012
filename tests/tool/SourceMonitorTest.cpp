#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/capture/CaptureReader.h"
#include "platform/foundation/Hex.h"
#include "tools/brenloft/SourceMonitor.h"

namespace brenloft {
namespace {

using platform::AdvertisingReport;
using platform::CBManagerState;
using platform::CBUUID;
using testing::ElementsAre;
using testing::HasSubstr;

const platform::Data kSensor = platform::octetsFromHex("05ff880901020303f0ff").value();

AdvertisingReport reportAt(double seconds) {
  return {.time = platform::dateWithTimeIntervalSince1970(seconds), .data = kSensor};
}

/// A radio that a test speaks for.
class TestRadio : public platform::AdvertisingReportSource {
 public:
  void open(ReportHandler onReport, StateHandler onState) override {
    hear = std::move(onReport);
    tell = std::move(onState);
  }
  void startScan(const std::vector<CBUUID>&) override {}
  void stopScan() override {}
  void close() override {}

  ReportHandler hear;
  StateHandler tell;
};

/// A monitor of a radio, and what it reported.
class SourceMonitorTest : public testing::Test {
 protected:
  void watch(std::optional<double> exitTime = std::nullopt, const std::string& record = {}) {
    monitor =
        SourceMonitor::make({.record = record,
                             .isRadio = true,
                             .exitTime = exitTime,
                             .date = [] { return platform::dateWithTimeIntervalSince1970(7); },
                             .onMessage = [this](std::string_view line) { messages.emplace_back(line); },
                             .onRadioState = [this](const auto& state) { states.push_back(state.reason); },
                             .onUnusable = [this] { isUnusable = true; }});
    monitor->begin();
    reports = monitor->wrap(radio);
    reports->open([](const AdvertisingReport&) {}, [](const platform::RadioState&) {});
  }

  ExitStatus finish() {
    try {
      monitor->finish();
    } catch (const Failure& failure) {
      last = failure.what();
      return failure.status();
    }
    return ExitStatus::done;
  }

  std::shared_ptr<TestRadio> radio = std::make_shared<TestRadio>();
  std::shared_ptr<SourceMonitor> monitor;
  std::shared_ptr<platform::AdvertisingReportSource> reports;
  std::vector<std::string> messages;
  std::vector<std::string> states;
  bool isUnusable = false;
  std::string last;
};

TEST_F(SourceMonitorTest, ARadioThatMayNotHearEndsTheCommandEvenIfItIsOn) {
  watch();
  radio->tell({CBManagerState::poweredOn, "on"});
  radio->tell({CBManagerState::unauthorized, "this permits it"});
  EXPECT_TRUE(isUnusable);
  EXPECT_EQ(finish(), ExitStatus::notPermitted);
  EXPECT_EQ(last, "this permits it");
  EXPECT_THAT(states, ElementsAre("on")) << "the last line tells the rest";
}

TEST_F(SourceMonitorTest, ARadioThatOnceHeardMayComeBack) {
  watch();
  radio->tell({CBManagerState::poweredOn, "on"});
  radio->hear(reportAt(1));
  radio->tell({CBManagerState::unauthorized, "refused"});
  radio->tell({CBManagerState::unsupported, "gone"});
  EXPECT_FALSE(isUnusable);
  EXPECT_EQ(finish(), ExitStatus::done);
  EXPECT_THAT(states, ElementsAre("on", "refused", "gone"));
}

TEST_F(SourceMonitorTest, RecordsTheStatesForAReplay) {
  const std::string file = testing::TempDir() + "brenloft-states.btsnoop";
  watch(std::nullopt, file);
  radio->tell({CBManagerState::poweredOn, "on"});
  radio->hear(reportAt(1));
  radio->tell({CBManagerState::poweredOff, std::string(1000, 'x')});
  EXPECT_EQ(finish(), ExitStatus::done);
  const auto reader = *platform::CaptureReader::open(file, {});
  using Next = platform::CaptureReader::Next;
  EXPECT_EQ(reader->next(), Next::state);
  EXPECT_EQ(reader->radioState().state, CBManagerState::poweredOn);
  EXPECT_EQ(reader->radioState().reason, "on");
  EXPECT_EQ(reader->time(), platform::dateWithTimeIntervalSince1970(7));
  EXPECT_EQ(reader->next(), Next::record);
  EXPECT_EQ(reader->next(), Next::state);
  EXPECT_EQ(reader->radioState().state, CBManagerState::poweredOff);
  EXPECT_GT(reader->radioState().reason.size(), 200U);
  EXPECT_EQ(reader->next(), Next::end);
}

TEST_F(SourceMonitorTest, TellsAtOnceThatTheRecordingFails) {
  watch(std::nullopt, "/dev/full");
  for (int second = 0; second < 10; ++second) radio->hear(reportAt(second));
  EXPECT_THAT(messages, ElementsAre(HasSubstr("/dev/full: cannot be written")));
  EXPECT_FALSE(isUnusable);
  EXPECT_EQ(finish(), ExitStatus::failed);
  EXPECT_THAT(last, HasSubstr("/dev/full"));
}

TEST_F(SourceMonitorTest, WarnsOfTheExitTimeForTheBeaconsOfTheSearch) {
  for (const uint32_t service : {0x180FU, 0xFFF0U}) {
    watch(5);
    reports->startScan({CBUUID::fromShort(service)});
    for (int i = 0; i < 10; ++i) radio->hear(reportAt(i * 10));
    EXPECT_EQ(messages.size(), service == 0xFFF0 ? 1U : 0U) << service;
  }
}

}  // namespace
}  // namespace brenloft
