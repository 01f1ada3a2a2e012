#include <cstdio>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "platform/foundation/Hex.h"

namespace {

using platform::Data;

constexpr const char* kZeroFrame = "00000000000000000000000000000000000000000000";

Data frameWith(size_t offset, const std::string& octets) {
  std::string hex = kZeroFrame;
  hex.replace(offset * 2, octets.size(), octets);
  return *platform::octetsFromHex(hex);
}

TEST(SensorFrame, DecodesEachFieldAtItsOffsetAndInItsByteOrder) {
  struct Row {
    size_t offset;
    const char* octets;
    BRLSensorReadings expected;
  };
  const BRLSensorReadings zero{
      .uniqueId = "00-00-00-00-00-00", .tbd = "000000", .xAccel = "0", .yAccel = "0", .zAccel = "0"};
  const auto with = [&](auto change) {
    BRLSensorReadings readings = zero;
    change(readings);
    return readings;
  };
  const Row rows[] = {
      {0, "0000", zero},
      {0, "2909", with([](auto& r) { r.temperature = "23.45"; })},
      {0, "ffff", with([](auto& r) { r.temperature = "-0.01"; })},
      {2, "ffff", with([](auto& r) { r.humidity = "655.35"; })},
      {4, "c5", with([](auto& r) { r.txPower = 197; })},
      {5, "64", with([](auto& r) { r.battery = 100; })},
      {6, "02", with([](auto& r) { r.emergency = 2; })},
      {7, "0c61cf123456", with([](auto& r) { r.uniqueId = "0C-61-CF-12-34-56"; })},
      {13, "fc18", with([](auto& r) { r.xAccel = "-1000"; })},
      {15, "03e8", with([](auto& r) { r.yAccel = "1000"; })},
      {17, "8000", with([](auto& r) { r.zAccel = "-32768"; })},
      {19, "01020a", with([](auto& r) { r.tbd = "01020A"; })},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(BRLSensorReadings::fromFrame(frameWith(row.offset, row.octets)), row.expected)
        << row.octets << " at " << row.offset;
  }
}

TEST(SensorFrame, IgnoresWhatFollowsTheFrameAndRefusesShorterValues) {
  Data frame = frameWith(0, "2909");
  const auto readings = BRLSensorReadings::fromFrame(frame);
  frame.resize(frame.size() + 7, std::byte{0xAB});
  EXPECT_EQ(BRLSensorReadings::fromFrame(frame), readings);
  for (size_t length = 0; length < kBRLSensorFrameLength; ++length) {
    const Data exact(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(BRLSensorReadings::fromFrame(exact)) << length;
  }
}

// The texts are defined by single-precision division and "%0.2f"; every raw value is held against that.
TEST(SensorFrame, WritesTheDigitsOfSinglePrecisionDivisionForEveryRawValue) {
  const auto reference = [](int value) {
    if (value == 0) return std::string();
    char text[32];
    std::snprintf(text, sizeof text, "%0.2f", static_cast<double>(static_cast<float>(value) / 100.0F));
    return std::string(text);
  };
  for (int raw = 0; raw <= 0xFFFF; ++raw) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%02x%02x%02x%02x", raw & 0xFF, raw >> 8, raw & 0xFF, raw >> 8);
    const auto readings = BRLSensorReadings::fromFrame(frameWith(0, hex));
    ASSERT_EQ(readings->temperature, reference(raw < 0x8000 ? raw : raw - 0x10000)) << raw;
    ASSERT_EQ(readings->humidity, reference(raw)) << raw;
  }
}

TEST(SensorFrame, DictionaryHoldsTenEntriesWithTextsAndUnsignedNumbers) {
  const auto dictionary = BRLSensorReadings::fromFrame(frameWith(4, "ff640c"))->dictionary();
  EXPECT_EQ(dictionary.size(), 10U);
  EXPECT_EQ(*platform::find<platform::NSNumber>(dictionary, "txPower"), platform::NSNumber(uint32_t{255}));
  EXPECT_EQ(*platform::find<platform::NSNumber>(dictionary, "emergency"), platform::NSNumber(uint32_t{12}));
  EXPECT_EQ(*platform::find<std::string>(dictionary, "temperature"), "");
  EXPECT_EQ(*platform::find<std::string>(dictionary, "uniqueId"), "00-00-00-00-00-00");
}

}  // namespace
