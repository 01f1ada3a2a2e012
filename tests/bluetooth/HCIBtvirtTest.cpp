#include <chrono>
#include <condition_variable>
#include <mutex>

#include <gtest/gtest.h>

#include "platform/bluetooth/hci/HCISource.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/foundation/Hex.h"
#include "tests/support/Btvirt.h"

namespace {

using namespace platform;
using support::Btvirt;
using support::BtvirtAdvertiser;

// Flags, a service UUID and the 22-octet frame behind its company identifier; then the same with one octet
// changed; then an iBeacon.
constexpr const char* kSensorFrame =
    "020106"
    "0303f0ff"
    "17ff34120102030405060708090a0b0c0d0e0f1011121314";
constexpr const char* kChangedFrame =
    "020106"
    "0303f0ff"
    "17ff34120102030405060708090a0b0c0d0e0f1011121399";
constexpr const char* kBeacon =
    "020106"
    "1aff4c000215000102030405060708090a0b0c0d0e0f00010201c5";

/// Two emulated controllers: one advertises, the other is driven.
class HCIBtvirtTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    btvirt = Btvirt::start(whyNot);
    if (!btvirt) GTEST_SKIP() << whyNot;
    std::string problem;
    driver = makeHCISource({parseRadioAddress(btvirt->address(), problem).value(), dispatch, nullptr});
    driver->open([this](const AdvertisingReport& report) { heard(report); }, [](const RadioState&) {});
    driver->startScan({});
  }
  ~HCIBtvirtTest() override {
    if (driver) driver->close();
  }

  void heard(const AdvertisingReport& report) {
    const std::lock_guard lock(mutex);
    latest = hexText(report.data);
    latestKind = report.kind;
    latestRssi = report.rssi;
    ++reports;
    changed.notify_all();
  }

  /// Advertises until it is heard: the scan may begin later than the advertiser.
  bool isHeard(BtvirtAdvertiser& advertiser, const char* data) {
    for (int i = 0; i < 60; ++i) {
      advertiser.advertise(octetsFromHex(data).value());
      std::unique_lock lock(mutex);
      if (changed.wait_for(lock, std::chrono::seconds(1), [&] { return latest == data; })) return true;
    }
    return false;
  }

  std::shared_ptr<RealTimeDispatch> dispatch = RealTimeDispatch::make();
  std::unique_ptr<Btvirt> btvirt;
  std::shared_ptr<HCIDriver> driver;
  std::mutex mutex;
  std::condition_variable changed;
  std::string latest;
  AdvertisingKind latestKind = AdvertisingKind::connectable;
  int8_t latestRssi = 0;
  int reports = 0;
};

TEST_F(HCIBtvirtTest, HearsASensorFrameItsChangeAndABeaconFromAnotherController) {
  BtvirtAdvertiser advertiser(*btvirt);
  EXPECT_TRUE(isHeard(advertiser, kSensorFrame));
  EXPECT_TRUE(isHeard(advertiser, kChangedFrame));
  EXPECT_TRUE(isHeard(advertiser, kBeacon));
  EXPECT_EQ(latestKind, AdvertisingKind::nonConnectable);
  EXPECT_EQ(latestRssi, AdvertisingReport::kNoRssi);
  EXPECT_EQ(driver->counters().malformed, 0U);
}

TEST_F(HCIBtvirtTest, HearsTheSameDataAgainEachTimeItIsSent) {
  BtvirtAdvertiser advertiser(*btvirt);
  ASSERT_TRUE(isHeard(advertiser, kSensorFrame));
  const int before = [this] {
    const std::lock_guard lock(mutex);
    return reports;
  }();
  for (int i = 0; i < 20; ++i) advertiser.advertise(octetsFromHex(kSensorFrame).value());
  std::unique_lock lock(mutex);
  EXPECT_TRUE(changed.wait_for(lock, std::chrono::minutes(1), [&] { return reports >= before + 20; }))
      << reports;
}

}  // namespace
