#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "platform/foundation/Hex.h"
#include "platform/foundation/NSUUID.h"
#include "platform/foundation/Value.h"

namespace platform {
namespace {

TEST(NumberTest, ConvertsBetweenWidthsWithoutUndefinedBehaviour) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  struct {
    NSNumber number;
    int32_t narrow;
    int64_t wide;
    uint64_t wideUnsigned;
    bool truth;
  } const cases[] = {
      {NSNumber(true), 1, 1, 1, true},
      {NSNumber(int8_t{-3}), -3, -3, UINT64_MAX - 2, true},
      {NSNumber(UINT32_MAX), -1, UINT32_MAX, UINT32_MAX, true},
      {NSNumber(int64_t{1} << 32), 0, int64_t{1} << 32, uint64_t{1} << 32, true},
      {NSNumber(UINT64_MAX), -1, -1, UINT64_MAX, true},
      {NSNumber(-2.9), -2, -2, 0, true},
      {NSNumber(1e300), INT32_MAX, INT64_MAX, UINT64_MAX, true},
      {NSNumber(-kInfinity), INT32_MIN, INT64_MIN, 0, true},
      {NSNumber(std::nan("")), 0, 0, 0, true},
      {NSNumber(0.0F), 0, 0, 0, false},
  };
  for (const auto& [number, narrow, wide, wideUnsigned, truth] : cases) {
    EXPECT_EQ(number.intValue(), narrow) << number.doubleValue();
    EXPECT_EQ(number.integerValue(), wide) << number.doubleValue();
    EXPECT_EQ(number.unsignedIntegerValue(), wideUnsigned) << number.doubleValue();
    EXPECT_EQ(number.boolValue(), truth) << number.doubleValue();
  }
  EXPECT_NE(NSNumber(int32_t{1}), NSNumber(int64_t{1})) << "a number remembers its width";
}

TEST(HexTest, ReadsWhatItWritesAndNothingElse) {
  const Data octets{std::byte{0x00}, std::byte{0x9A}, std::byte{0xFF}};
  EXPECT_EQ(hexText(octets), "009aff");
  EXPECT_EQ(octetsFromHex("009AfF"), octets);
  EXPECT_EQ(octetsFromHex(""), Data());
  for (const auto* text : {"0", "0g", "g0", " 00", "0x00", "00 "})
    EXPECT_EQ(octetsFromHex(text), std::nullopt);
}

TEST(UUIDTest, AcceptsTheHyphenatedFormOnlyAndWritesItInUpperCase) {
  const auto uuid = NSUUID::initWithUUIDString("e20a39f4-73f5-4bc4-a12f-17d1ad07a961");
  ASSERT_TRUE(uuid);
  EXPECT_EQ(uuid->UUIDString(), "E20A39F4-73F5-4BC4-A12F-17D1AD07A961");
  EXPECT_EQ(uuid->octets()[0], 0xE2);
  for (const auto* text : {"", "E20A39F473F54BC4A12F17D1AD07A961", "E20A39F4-73F5-4BC4-A12F-17D1AD07A96",
                           "E20A39F4-73F5-4BC4-A12F-17D1AD07A9611", "E20A39F4-73F5-4BC4-A12F-17D1AD07A96G",
                           "E20A39F47-3F5-4BC4-A12F-17D1AD07A961", "{20A39F4-73F5-4BC4-A12F-17D1AD07A961"}) {
    EXPECT_EQ(NSUUID::initWithUUIDString(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace platform
