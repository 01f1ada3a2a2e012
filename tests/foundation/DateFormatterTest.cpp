#include <array>
#include <cstdlib>
#include <ctime>
#include <random>

#include <gtest/gtest.h>

#include "platform/foundation/NSDateFormatter.h"

namespace platform {
namespace {

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
