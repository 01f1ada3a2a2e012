#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "platform/bluetooth/hci/HCIAdapters.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/bluetooth/hci/HCISource.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tests/support/ControllerModel.h"
#include "tests/support/H4Server.h"
#include "tests/support/PseudoTerminals.h"

namespace {

using namespace platform;
using namespace platform::hci;
using support::ControllerModel;
using support::H4Server;

/// A driver on real time and what it told; `wait` gives up after a minute, which no test should take.
class HCITransportTest : public testing::Test {
 protected:
  ~HCITransportTest() override {
    if (driver) driver->close();
  }

  void open(const std::string& address) {
    std::string problem;
    const auto parsed = parseRadioAddress(address, problem);
    ASSERT_TRUE(parsed) << problem;
    driver = makeHCISource({*parsed, dispatch, nullptr});
    driver->open([this](const AdvertisingReport& report) { heard(report); },
                 [this](const RadioState& state) {
                   const std::lock_guard lock(mutex);
                   states.push_back(state);
                   changed.notify_all();
                 });
    driver->startScan({});
  }

  template <class Condition>
  bool wait(Condition condition) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::minutes(1), condition);
  }
  bool waitForState(CBManagerState state) {
    return wait([this, state] { return !states.empty() && states.back().state == state; });
  }

  /// Reports carry their number in the last four octets.
  void heard(const AdvertisingReport& report) {
    if (released.valid()) released.wait();
    uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) number = number << 8 | octetAt(report.data, report.data.size() - 4 + i);
    const std::lock_guard lock(mutex);
    if (number != reports) ++misplaced;
    if (++reports >= awaited) changed.notify_all();
  }

  static Data numbered(uint32_t number) {
    return ControllerModel::legacyReport(
        static_cast<uint16_t>(number), parameters({0x07, 0xFF, 0x34, 0x12, number & 0xFFU,
                                                   number >> 8 & 0xFFU, number >> 16 & 0xFFU, number >> 24}));
  }

  std::shared_ptr<RealTimeDispatch> dispatch = RealTimeDispatch::make();
  std::shared_ptr<HCIDriver> driver;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<RadioState> states;
  std::shared_future<void> released;  ///< reports are dealt with from then on, if there is one
  uint64_t reports = 0;
  uint64_t misplaced = 0;
  uint64_t awaited = 1;
};

TEST_F(HCITransportTest, LosesNoneOfTenSecondsOfFiftyThousandReportsASecond) {
  constexpr uint32_t kReports = 500'000;
  awaited = kReports;
  H4Server server;
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  std::thread flood([&] {
    Data chunk;
    for (uint32_t i = 0; i < kReports; ++i) {
      const Data report = numbered(i);
      chunk.insert(chunk.end(), report.begin(), report.end());
      if (chunk.size() < 4096 && i + 1 < kReports) continue;
      server.send(chunk);
      chunk.clear();
    }
  });
  EXPECT_TRUE(wait([this] { return reports == awaited; })) << reports << " of " << kReports;
  flood.join();
  EXPECT_EQ(misplaced, 0U);
  EXPECT_EQ(driver->counters().malformed, 0U);
  EXPECT_EQ(driver->counters().skippedOctets, 0U);
}

TEST_F(HCITransportTest, HoldsAFloodBackWhileItsReportsAreDealtWith) {
  // Nothing takes the reports: the sender must come to a stop instead of the driver's memory growing.
  H4Server server;
  std::promise<void> release;
  released = release.get_future().share();
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  Data chunk;
  while (chunk.size() < 1U << 16U) {
    const Data report = numbered(0);
    chunk.insert(chunk.end(), report.begin(), report.end());
  }
  std::size_t sent = 0;
  while (sent < (64U << 20U) && server.sendSome(chunk)) sent += chunk.size();
  EXPECT_LT(sent, 16U << 20U);
  release.set_value();
}

TEST_F(HCITransportTest, ComesBackWhenTheOtherSideClosesAndListensAgain) {
  H4Server server;
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  server.drop();
  ASSERT_TRUE(waitForState(CBManagerState::resetting));
  ASSERT_TRUE(waitForState(CBManagerState::poweredOn));
  ASSERT_TRUE(server.waitForScan());
  server.send(numbered(0));
  EXPECT_TRUE(wait([this] { return reports == 1; }));
}

TEST_F(HCITransportTest, NamesTheLineThatIsNone) {
  const std::pair<std::string, CBManagerState> cases[] = {
      {"h4:unix:/nonexistent/controller", CBManagerState::poweredOff},
      {"h4:/dev/null", CBManagerState::unsupported}};
  for (const auto& [address, state] : cases) {
    states.clear();
    open(address);
    ASSERT_TRUE(waitForState(state));
    EXPECT_NE(states[0].reason.find(address.substr(address.find('/'))), std::string::npos)
        << states[0].reason;
    driver->close();
  }
}

TEST_F(HCITransportTest, HearsOverASerialLineAndNoticesThatItIsUnplugged) {
  if (!support::hasPseudoTerminals()) GTEST_SKIP() << support::kNoPseudoTerminals;
  int controllerEnd = -1;
  int hostEnd = -1;
  char name[128];
  ASSERT_EQ(::openpty(&controllerEnd, &hostEnd, name, nullptr, nullptr), 0);
  H4Server server{controllerEnd};
  open("h4:" + std::string(name) + ",1000000");
  ASSERT_TRUE(server.waitForScan());
  ::close(hostEnd);
  server.send(numbered(0));
  EXPECT_TRUE(wait([this] { return reports == 1; }));
  server.drop();
  EXPECT_TRUE(wait([this] { return states.size() > 1; }));
}

TEST_F(HCITransportTest, WithoutAnAdapterItSaysWhy) {
  std::string problem;
  const auto adapters = listHCIAdapters(problem);
  if (!adapters.empty()) GTEST_SKIP() << "this machine has a Bluetooth adapter";
  open("hci:0");
  ASSERT_TRUE(wait([this] { return !states.empty(); }));
  if (problem.empty()) {
    EXPECT_EQ(states[0].state, CBManagerState::poweredOff);
    EXPECT_EQ(states[0].reason, "no adapter hci0; none is plugged in");
  } else {
    EXPECT_EQ(states[0].state, CBManagerState::unsupported);
    EXPECT_EQ(states[0].reason, problem);
  }
}

}  // namespace
