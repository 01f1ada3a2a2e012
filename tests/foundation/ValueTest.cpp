#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "platform/foundation/Hex.h"
#include "platform/foundation/NSDateFormatter.h"
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

using namespace std::chrono_literals;

constexpr std::string_view kReadable = "yyyy-MM-dd HH:mm:ss";
constexpr std::string_view kDigits = "yyyyMMddHHmmss";

std::string formatted(const char* zone, std::string_view format, Date date) {
  setenv("TZ", zone, 1);
  return NSDateFormatter(format).stringFromDate(date);
}

TEST(DateFormatterTest, WritesBothFormatsInTheLocalZone) {
  struct {
    const char* zone;
    Date date;
    std::string readable, digits;
  } const cases[] = {
      {"UTC0", Date(0s), "1970-01-01 00:00:00", "19700101000000"},
      {"UTC0", Date(-1us), "1969-12-31 23:59:59", "19691231235959"},
      {"UTC0", Date(-86'400s), "1969-12-31 00:00:00", "19691231000000"},
      {"UTC0", Date(-14'182'980'000s), "1520-07-24 03:20:00", "15200724032000"},
      {"UTC0", Date(4'102'444'800s), "2100-01-01 00:00:00", "21000101000000"},
      {"UTC0", Date(951'782'400s + 999'999us), "2000-02-29 00:00:00", "20000229000000"},
      {"KST-9", Date(1'769'862'896s), "2026-01-31 21:34:56", "20260131213456"},
      {"NST3:30", Date(0s), "1969-12-31 20:30:00", "19691231203000"},
  };
  for (const auto& [zone, date, readable, digits] : cases) {
    EXPECT_EQ(formatted(zone, kReadable, date), readable) << zone;
    EXPECT_EQ(formatted(zone, kDigits, date), digits) << zone;
  }
}

// The C library is asked for every instant; the zones change at odd moments, some within a quarter of an
// hour.
TEST(DateFormatterTest, AgreesWithTheCLibraryAtRandomInstants) {
  std::mt19937_64 random(5);
  std::uniform_int_distribution<int64_t> anywhere(-5'000'000'000, 6'000'000'000);
  std::uniform_int_distribution<int64_t> near(-2000, 2000);
  // Where Monrovia's 44.5 minutes end, and where summer time begins and ends in Europe.
  constexpr std::array<int64_t, 3> changes{63'593'070, 1'774'746'000, 1'792'890'000};
  for (const auto* zone : {"UTC0", "Asia/Seoul", "Europe/Dublin", "America/St_Johns", "Africa/Monrovia",
                           "Asia/Kathmandu", "Australia/Lord_Howe", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
    setenv("TZ", zone, 1);
    NSDateFormatter formatter(kReadable);
    int64_t instant = 0;
    for (int i = 0; i < 20'000; ++i) {
      instant = i % 4 == 0 ? anywhere(random) : instant + near(random);
      if (i % 100 == 0) instant = changes.at(static_cast<std::size_t>(i / 100 % 3)) + near(random) / 1000;
      const auto time = static_cast<std::time_t>(instant);
      std::tm local{};
      localtime_r(&time, &local);
      std::array<char, 32> expected{};
      std::strftime(expected.data(), expected.size(), "%Y-%m-%d %H:%M:%S", &local);
      ASSERT_EQ(formatter.stringFromDate(Date(std::chrono::seconds(instant))), expected.data()) << zone;
    }
  }
}

TEST(DateFormatterTest, KeepsOtherTextAsItIs) {
  EXPECT_EQ(formatted("UTC0", "dd.MM.yyyy 'at' HH h, SSS!", Date(1'234'567us)), "01.01.1970 'at' 00 h, 234!");
  EXPECT_EQ(formatted("UTC0", "", Date(0s)), "");
}

// Around both changes of the European summer time, and half an hour off.
TEST(DateFormatterTest, WritesTheOffsetThatHoldsAtEachInstant) {
  constexpr std::string_view kWhole = "yyyy-MM-ddTHH:mm:ss.SSSSSSxxx";
  constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
  EXPECT_EQ(formatted(kBerlin, kWhole, Date(1'774'745'999'999'999us)), "2026-03-29T01:59:59.999999+01:00");
  EXPECT_EQ(formatted(kBerlin, kWhole, Date(1'774'746'000s)), "2026-03-29T03:00:00.000000+02:00");
  EXPECT_EQ(formatted(kBerlin, kWhole, Date(1'792'886'400s)), "2026-10-25T02:00:00.000000+02:00");
  EXPECT_EQ(formatted(kBerlin, kWhole, Date(1'792'890'000s)), "2026-10-25T02:00:00.000000+01:00");
  EXPECT_EQ(formatted("NST3:30", "HH:mmxxx", Date(0s)), "20:30-03:30");
  EXPECT_EQ(formatted("UTC0", "HH:mmxxx", Date(0s)), "00:00+00:00");
}

TEST(DateFormatterTest, WritesRFC3339InUTCWithMicroseconds) {
  setenv("TZ", "KST-9", 1);
  EXPECT_EQ(rfc3339Text(Date(1'769'862'896'789'012us)), "2026-01-31T12:34:56.789012Z");
  EXPECT_EQ(rfc3339Text(Date(-1us)), "1969-12-31T23:59:59.999999Z");
  EXPECT_EQ(rfc3339Text(Date(0us)), "1970-01-01T00:00:00.000000Z");
}

}  // namespace
}  // namespace platform
