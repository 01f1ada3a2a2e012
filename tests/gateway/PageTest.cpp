#include <cstdlib>
#include <ctime>

#include <gmock/gmock.h>

#include "gateway/web/BeaconList.h"
#include "gateway/web/Html.h"
#include "gateway/web/LocalTime.h"
#include "gateway/web/PageData.h"
#include "gateway/web/PageTexts.h"
#include "gateway/web/PageWriter.h"
#include "tests/gateway/HistoryFixture.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using namespace web;
using Kind = BeaconEvent::Kind;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// A page of two days up to kNow, in Berlin. Its beacons are heard every ten minutes.
class PageTest : public HistoryTest {
 protected:
  void SetUp() override {
    ::setenv("TZ", "Europe/Berlin", 1);
    ::tzset();
  }

  void tell(Kind kind, platform::Date heard, std::optional<BeaconId> who = std::nullopt,
            std::string text = {}) {
    writer_->accept(
        BeaconEvent{.beacon = std::move(who), .heard = heard, .kind = kind, .text = std::move(text)});
  }
  void hear(int number, platform::Date since, platform::Date until, int32_t temperature = 400,
            int32_t battery = 90) {
    for (platform::Date at = since; at < until; at += 10min) {
      Reading one = reading(number, at, temperature);
      one.raw.battery = one.shown.battery = battery;
      writer_->accept(one);
    }
  }
  void name(int number, BeaconSettings settings) { settings_.beacons[beacon(number)] = std::move(settings); }

  PageModel model(platform::Date since = kNow - 48h, platform::Date until = kNow, bool isWritten = true) {
    writer_.reset();
    auto page =
        readPageModel(*openReader(), settings_,
                      {.span = {since, until}, .end = {.isWritten = isWritten, .isPast = until < kNow}});
    EXPECT_TRUE(page) << (page ? "" : page.error().text);
    return page ? *std::move(page) : PageModel{};
  }
  static std::string html(const PageModel& page) { return writePage(page, {"Title", "n0nce"}); }

  std::unique_ptr<HistoryWriter> writer_ = openWriter();
  Settings settings_;
};

TEST_F(PageTest, AGapOfTheBeaconAndOneOfTheRadioBreakTheLineAndAreToldApart) {
  tell(Kind::found, kNow - 48h, beacon(1));
  hear(1, kNow - 48h, kNow - 30h);
  tell(Kind::lost, kNow - 30h, beacon(1));
  tell(Kind::found, kNow - 28h, beacon(1));
  hear(1, kNow - 28h, kNow - 20h);
  tell(Kind::radio, kNow - 20h, std::nullopt, "poweredOff (unplugged)");
  tell(Kind::radio, kNow - 15h, std::nullopt, "poweredOn");
  hear(1, kNow - 15h, kNow - 10h);
  hear(1, kNow - 9h, kNow - 6h);  // thinned: nothing tells of a silence
  tell(Kind::radio, kNow - 2h, std::nullopt, "poweredOn");
  hear(1, kNow - 2h, kNow);
  const PageModel page = model();
  ASSERT_EQ(page.beacons.size(), 1U);
  const PageBeacon& one = page.beacons[0];
  EXPECT_TRUE(one.isPresent);
  ASSERT_EQ(one.presence.size(), 2U);
  EXPECT_EQ(one.presence[0].until, kNow - 30h);
  EXPECT_EQ(one.presence[1].since, kNow - 28h);
  ASSERT_EQ(page.outages.size(), 2U);
  EXPECT_EQ(page.outages[0].since, kNow - 20h);
  EXPECT_EQ(page.outages[0].until, kNow - 15h);
  EXPECT_EQ(page.outages[1].since, kNow - 6h - 10min) << "the program did not run from its last row on";
  EXPECT_FALSE(page.deafSince);
  const PageCurve& curve = one.layers[0].curves[0];
  std::vector<platform::Date> behindBreaks;
  for (const std::size_t at : curve.breaks) behindBreaks.push_back(curve.points[at].start);
  EXPECT_EQ(behindBreaks, (std::vector<platform::Date>{kNow - 28h, kNow - 15h, kNow - 2h}));
  EXPECT_EQ(textOf(page.events[0]).details, "hears");
  EXPECT_EQ(textOf(page.events[1]).details, "hears again after 5 h 00 min");
  EXPECT_EQ(textOf(page.events[3]).details, "again after 2 h 00 min");
}

TEST_F(PageTest, WhatListensNoMoreMakesNobodySilent) {
  name(1, {.name = "Fridge"});
  tell(Kind::found, kNow - 24h, beacon(1));
  hear(1, kNow - 24h, kNow - 8h);
  tell(Kind::lost, kNow - 7h, beacon(1));
  hear(2, kNow - 8h, kNow - 3h);
  const PageModel page = model();
  EXPECT_EQ(page.deafSince, kNow - 3h - 10min);
  EXPECT_FALSE(page.beacons[1].isPresent);
  ASSERT_EQ(attentionOf(page).size(), 1U);
  EXPECT_EQ(attentionOf(page)[0].why, "Since Fri 20 Nov 21:50. All values are old");
  EXPECT_THAT(html(page), Not(HasSubstr("heard</span>"))) << "nobody knows who is there";
}

TEST_F(PageTest, WhereNoProcessWritesNothingIsKnownSinceTheNewestRow) {
  name(1, {.name = "Fridge"});
  settings_.alarms.push_back({.name = "warm", .above = 300});
  tell(Kind::found, kNow - 10h, beacon(2));
  hear(2, kNow - 10h, kNow - 30min);
  tell(Kind::found, kNow - 5h, beacon(1));
  hear(1, kNow - 5h, kNow - 30min);
  tell(Kind::alarmRaised, kNow - 1h, beacon(1), "warm");
  EXPECT_FALSE(model().deafSince) << "a writer that has nothing to write";
  const PageModel page = model(kNow - 48h, kNow, false);
  EXPECT_EQ(page.deafSince, kNow - 40min);
  EXPECT_EQ(page.beacons[1].knownSince, kNow - 5h) << "not heard is not yet known";
  EXPECT_EQ(page.beacons[1].marks[0].span.until, kNow - 40min);
  const auto lines = attentionOf(page);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].why, "Since 00:20, and no process writes the history. All values are old");
  EXPECT_EQ(lines[1].duration, "20 min") << "nobody knows whether it goes on";
  EXPECT_THAT(beaconList(page, 1), AllOf(HasSubstr("\"present\":null"), Not(HasSubstr("\"present\":true"))));
  EXPECT_FALSE(healthOf(page).isWell);
  EXPECT_EQ(model(kNow - 1min, kNow, false).deafSince, kNow - 40min) << "also before the span";
}

TEST_F(PageTest, WhatNeedsAttentionStandsFirstInItsOrder) {
  name(1, {.name = "Fridge", .place = "Kitchen"});
  name(2, {.name = "Tag"});
  name(4, {.name = "Dock"});
  name(5, {.name = "Lost in the post"});
  settings_.alarms.push_back(
      {.name = "warm", .place = "Kitchen", .above = 500, .hold = 10min, .text = "Shut the door"});
  settings_.alarms.push_back({.name = "cool", .below = 2002, .severity = AlarmSeverity::info});
  hear(1, kNow - 20h, kNow, 504);
  hear(2, kNow - 20h, kNow, 2000, 9);
  hear(4, kNow - 20h, kNow - 4h, 790);
  hear(6, kNow - 20h, kNow - 4h);
  tell(Kind::lost, kNow - 3h, beacon(4));
  tell(Kind::lost, kNow - 3h, beacon(6));  // a stranger
  tell(Kind::alarmRaised, kNow - 14min, beacon(1), "warm");
  tell(Kind::alarmRaised, kNow - 2h, beacon(2), "cool");
  tell(Kind::emergency, kNow - 47s, beacon(2));
  const PageModel page = model();
  std::vector<std::string> lines;
  for (const Attention& line : attentionOf(page))
    lines.push_back(line.beacon->name() + ": " + line.figure + "; " + line.why + "; " + line.duration);
  EXPECT_EQ(lines,
            (std::vector<std::string>{
                "Tag: Signalled; By the beacon since 00:59:13, still on; 47 s",
                "Fridge: 5.04 °C; Above 5.0 °C since 00:36 (warm: Shut the door); 24 min",
                "Dock: Not heard; Last heard Fri 20 Nov 20:50 with 7.9 °C and \u221260 dBm; 4 h 10 min",
                "Tag: 9 %; Empty not known yet; ",
                "Lost in the post: Never heard; The settings name it: C0-C1-5C-00-00-05; ",
                "Tag: 20.0 °C; Below 20.02 °C since Fri 20 Nov 23:00 (cool); 2 h 00 min"}));
  EXPECT_FALSE(isAlarmed(page.beacons[3], AlarmQuantity::temperature)) << "it merely tells something";
  ASSERT_EQ(page.beacons[0].marks.size(), 1U);
  EXPECT_EQ(page.beacons[0].marks[0].span.since, kNow - 14min);
}

TEST_F(PageTest, OneHighReadingIsSeenHoweverMuchIsThinned) {
  hear(1, kNow - 24h * 300, kNow);
  writer_->accept(reading(1, kNow - 24h * 100, 1925));
  const PageModel page = model(kNow - 24h * 300);
  const PageBeacon& one = page.beacons[0];
  ASSERT_EQ(one.layers.size(), 4U);
  const auto highest = [](const auto& points, auto member) {
    return std::ranges::max(points, {}, member).*member;
  };
  EXPECT_EQ(highest(one.layers[0].curves[0].points, &HistoryPoint::maximum), 1925);
  EXPECT_LE(one.layers[0].curves[0].points.size(), 720U);
  EXPECT_EQ(one.layers[3].width, 5min) << "the last day in detail";
  EXPECT_EQ(one.days.size(), 31U);
  EXPECT_THAT(pageData(page), HasSubstr("\"width\":43200"));
}

TEST_F(PageTest, ABatteryIsEmptyOnTheDayThatItsTrendSays) {
  for (int day = 30; day > 0; --day) hear(1, kNow - 24h * day, kNow - 24h * day + 1h, 400, 30 + day);
  const PageModel page = model();
  const PageBeacon& one = page.beacons[0];
  ASSERT_TRUE(one.trend);
  EXPECT_NEAR(one.trend->perDay, -1, 0.01);
  ASSERT_TRUE(one.empty);
  EXPECT_NEAR(std::chrono::duration<double>(*one.empty - kNow).count() / 86'400, 30, 0.5);
  EXPECT_EQ(factsOf(page, one).at(2).value, "about 21 Dec");
}

TEST_F(PageTest, IsAsOfItsEnd) {
  hear(1, kNow - 48h, kNow - 24h, 400);
  hear(1, kNow - 24h, kNow, 900);
  tell(Kind::emergency, kNow - 1h, beacon(1));
  const PageModel page = model(kNow - 48h, kNow - 24h);
  EXPECT_EQ(page.beacons[0].latest->shown.temperature, 400);
  EXPECT_EQ(page.beacons[0].latest->heard, kNow - 24h - 10min);
  EXPECT_FALSE(page.beacons[0].emergencySince);
}

TEST_F(PageTest, WhetherAnybodyListenedAtAnEndInThePastIsKnownFromWhatCameAfter) {
  name(1, {.name = "Fridge"});
  tell(Kind::emergency, kNow - 47h, beacon(1));
  hear(1, kNow - 48h, kNow - 20h);
  tell(Kind::radio, kNow - 1h, std::nullopt, "poweredOn");
  hear(1, kNow - 1h, kNow);
  const platform::Date heardLast = kNow - 20h - 10min;
  EXPECT_FALSE(model(kNow - 48h, kNow - 30h, false).deafSince) << "that nobody writes now says nothing of it";
  for (const platform::Date until : {kNow - 20h + 10min, kNow - 10h, kNow - 1h}) {
    const PageModel page = model(kNow - 21h, until);
    EXPECT_EQ(page.deafSince, heardLast);
    ASSERT_EQ(page.outages.size(), 1U);
    EXPECT_EQ(page.outages[0].since, heardLast);
    EXPECT_EQ(page.outages[0].until, until);
  }
  const PageModel page = model(kNow - 15h, kNow - 10h);
  ASSERT_TRUE(page.beacons[0].latest) << "heard before the span, and after it";
  EXPECT_EQ(page.beacons[0].latest->heard, heardLast);
  EXPECT_EQ(page.beacons[0].needs, std::vector{Need::emergency});
}

TEST_F(PageTest, ANightWithoutAnybodyIsNoOutageAndADeadWriterOfTheFutureIsOne) {
  hear(1, kNow - 48h, kNow - 20h);
  hear(1, kNow - 10h, kNow);
  EXPECT_FALSE(model(kNow - 48h, kNow - 12h).deafSince) << "nothing tells of a start";
  writer_ = openWriter();
  hear(1, kNow + 24h, kNow + 24h + 1min);
  EXPECT_EQ(model(kNow - 48h, kNow, false).deafSince, kNow - 10min);
}

TEST_F(PageTest, WhatOthersWroteIsTextEverywhere) {
  const std::string hostile = "</script><img src=x onerror='a()'>\"&\x1b\xff{{title}}";
  name(1, {.name = hostile, .place = hostile});
  settings_.alarms.push_back({.name = hostile, .above = 100, .text = hostile});
  hear(1, kNow - 1h, kNow, 820);
  tell(Kind::alarmRaised, kNow - 1h, beacon(1), hostile);
  tell(Kind::radio, kNow - 1h, std::nullopt, hostile);
  tell(Kind::radio, kNow - 50min, std::nullopt, "poweredOn");
  const std::string text = writePage(model(), {hostile, "n0nce"});
  EXPECT_THAT(text, Not(HasSubstr("<img")));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  EXPECT_THAT(
      text,
      HasSubstr("<bdi>&lt;/script&gt;&lt;img src=x onerror=&#39;a()&#39;&gt;&quot;&amp;??{{title}}</bdi>"));
  std::size_t ends = 0;
  for (std::size_t at = text.find("</script"); at != std::string::npos; at = text.find("</script", at + 1))
    ++ends;
  EXPECT_EQ(ends, 3U) << "the data, the charts and the page's own";
}

TEST_F(PageTest, AClockThatWasPutBackMakesNobodySilent) {
  hear(1, kNow - 3h, kNow - 2h);
  tell(Kind::lost, kNow - 1h, beacon(1));
  hear(1, kNow - 90min, kNow);
  hear(3, kNow - 90min, kNow);
  const PageModel page = model(kNow - 3h);
  EXPECT_TRUE(attentionOf(page).empty());
  EXPECT_EQ(page.beacons[0].name(), "1/3 of 51C70E2A");
  EXPECT_EQ(page.recent.since, kNow - 3h);
}

TEST_F(PageTest, AnEmptyTimeIsSaid) {
  EXPECT_THAT(html(model()), HasSubstr("No beacon was heard in this time."));
}

TEST(LocalTime, KnowsTheChangesOfTheZone) {
  ::setenv("TZ", "Europe/Berlin", 1);
  ::tzset();
  const platform::Date noon = std::chrono::sys_days(std::chrono::year(2026) / 10 / 24) + 12h;
  const auto changes = zoneChanges({noon, noon + 48h});
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].name, "CEST");
  EXPECT_EQ(changes[1].since, std::chrono::sys_days(std::chrono::year(2026) / 10 / 25) + 1h);
  EXPECT_EQ(changes[1].offset, 1h);
  EXPECT_EQ(midnight(noon + 24h), std::chrono::sys_days(std::chrono::year(2026) / 10 / 24) + 22h);
  EXPECT_EQ(durationText(123min), "2 h 03 min");
  EXPECT_EQ(sinceText(noon, noon + 24h), "Sat 24 Oct 14:00");
  EXPECT_EQ(decimalText(-4, 1), "0.0");
}

TEST(LocalTime, BeginsADayWithTheFirstOfTwoMidnightsOrWithoutOne) {
  ::setenv("TZ", "America/Havana", 1);
  ::tzset();
  const platform::Date autumn = std::chrono::sys_days(std::chrono::year(2026) / 11 / 1);
  for (const auto hour : {4h, 5h, 6h, 20h}) EXPECT_EQ(midnight(autumn + hour + 30min), autumn + 4h);
  const platform::Date spring = std::chrono::sys_days(std::chrono::year(2026) / 3 / 8);
  for (const auto hour : {5h, 20h}) EXPECT_EQ(midnight(spring + hour + 30min), spring + 5h);
}

}  // namespace
}  // namespace brenloft
