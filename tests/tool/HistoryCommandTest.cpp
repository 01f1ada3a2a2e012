#include <algorithm>
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "gateway/InstantText.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/tool/RunTool.h"
#include "tools/brenloft/Chart.h"

namespace brenloft_test {
namespace {

using namespace brenloft;

constexpr platform::Date kTen =
    std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + std::chrono::hours(10);

// Two beacons for ten minutes, one reading each in a second, and an event at the end.
class KeptHistory : public testing::Test {
 protected:
  void SetUp() override {
    const auto dispatch = platform::VirtualDispatch::make(kTen);
    const auto writer =
        *HistoryWriter::open(folder_ / kHistoryFileName, {}, dispatch, dispatch->mainQueue(), {});
    for (int second = 0; second < 600; ++second)
      for (const char* name : {"C0-C1-5C-00-00-01", "C0-C1-5C-00-00-02"}) {
        Reading reading{
            .beacon = BeaconId::sensor(name), .heard = kTen + std::chrono::seconds(second), .rssi = -60};
        reading.raw.temperature = reading.shown.temperature = 400 + second % 60;
        writer->accept(reading);
      }
    writer->accept(BeaconEvent{.beacon = BeaconId::sensor("C0-C1-5C-00-00-02"),
                               .heard = kTen + std::chrono::seconds(600),
                               .kind = BeaconEvent::Kind::lost});
    writeFile(folder_ / "brenloft.toml",
              "[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"Fridge\"\nplace = \"Kitchen\"\n");
  }

  Ended history(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "history");
    for (const std::string& more : {std::string("--container"), folder_.path().string(),
                                    std::string("--config"), folder_.file("brenloft.toml")})
      arguments.push_back(more);
    return runTool(arguments);
  }

  TemporaryFolder folder_;
};

TEST_F(KeptHistory, IsExportedForANameAndATimeInEachFormat) {
  const std::vector<std::string> minute{
      "export", "--since", "2026-11-21T10:01Z", "--until", "2026-11-21T10:02Z", "--beacon", "Fridge"};
  const auto as = [&](const std::string& format, std::vector<std::string> more = {}) {
    more.insert(more.begin(), minute.begin(), minute.end());
    more.insert(more.end(), {"--format", format, "--time", format == "csv" ? "unix" : "utc"});
    return history(more).lines();
  };
  ASSERT_EQ(as("jsonl").size(), 60U);
  EXPECT_EQ(
      as("jsonl").front().rfind(
          R"({"time":"2026-11-21T10:01:00.000000Z","seq":121,"event":"reading",)"
          R"("id":"C0-C1-5C-00-00-01","name":"Fridge","place":"Kitchen","rssi":-60,"temperature":4.00,)"),
      0U);
  EXPECT_EQ(as("csv").at(60),
            "239,1795255319.000000,reading,C0-C1-5C-00-00-01,Fridge,Kitchen,-60,4.59,,,,,,,,4.59,,,,,,,,");
  EXPECT_EQ(as("influx").front(),
            "reading,id=C0-C1-5C-00-00-01,name=Fridge,place=Kitchen temperature=4.00,rssi=-60i "
            "1795255260000000000");
  EXPECT_EQ(as("jsonl", {"--every", "30s"}),
            (std::vector<std::string>{
                R"({"time":"2026-11-21T10:01:00.000000Z","id":"C0-C1-5C-00-00-01","name":"Fridge",)"
                R"("place":"Kitchen","count":30,"temperature":{"mean":4.145,"min":4.00,"max":4.29},)"
                R"("humidity":null,"battery":null,"rssi":{"mean":-60.000,"min":-60,"max":-60}})",
                R"({"time":"2026-11-21T10:01:30.000000Z","id":"C0-C1-5C-00-00-01","name":"Fridge",)"
                R"("place":"Kitchen","count":30,"temperature":{"mean":4.445,"min":4.30,"max":4.59},)"
                R"("humidity":null,"battery":null,"rssi":{"mean":-60.000,"min":-60,"max":-60}})"}));
  EXPECT_EQ(as("csv", {"--every", "60s"}).at(1),
            "1795255260.000000,C0-C1-5C-00-00-01,Fridge,Kitchen,60,4.295,4.00,4.59,,,,,,,-60.000,-60,-60");
}

TEST_F(KeptHistory, SaysWhatWasInForceAtAnInstantAndHowOldThatWas) {
  const auto at = [&](const std::string& instant, std::vector<std::string> more) {
    more.insert(more.begin(), {"last", "--at", instant, "--time", "utc"});
    return history(more);
  };
  const auto lines = at("2026-11-21T10:05:00.5Z", {"--beacon", "c0:c1:5c:00:00:01"}).lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[1],
            "2026-11-21T10:05:00.000000Z     0s  Fridge                     -60    4.00       -     -");
  EXPECT_EQ(at("2026-11-21T12:10Z", {}).lines().at(2).substr(27, 26), "     2h  C0-C1-5C-00-00-02");
  EXPECT_EQ(at("2026-11-21T09:00Z", {"--beacon", "Fridge"}).err,
            "no reading of Fridge at or before 2026-11-21T09:00:00.000000Z\n");
  EXPECT_EQ(history({"count", "--readings"}).out, "1200\n");
  EXPECT_EQ(
      history({"show", "--time", "utc"}).err,
      "nothing in the last hour; the newest reading is of 2026-11-21T10:09:59.000000Z; --since and --until "
      "choose another time\n");
  EXPECT_EQ(at("2999-01-01T00:00Z", {}).err,
            "brenloft: --at: 2999-01-01T00:00:00.000000Z is in the future\n");
}

TEST_F(KeptHistory, KnowsEachBeaconItsGapAndTheTrendOfItsBattery) {
  const auto beacons = [&](const std::string& format) {
    return runTool(
        {"beacons", "-C", folder_.path().string(), "--config", folder_.file("brenloft.toml"), "-F", format});
  };
  const auto dispatch = platform::VirtualDispatch::make(kTen);
  {
    const auto writer =
        *HistoryWriter::open(folder_ / kHistoryFileName, {}, dispatch, dispatch->mainQueue(), {});
    // Down by half a percent a day, with a new battery on the tenth.
    for (int day = 1; day <= 30; ++day) {
      Reading reading{.beacon = BeaconId::sensor("C0-C1-5C-00-00-01"),
                      .heard = kTen + std::chrono::days(day),
                      .rssi = -60};
      reading.raw.battery = reading.shown.battery = (day < 10 ? 40 : 100) - day / 2;
      writer->accept(reading);
    }
    writer->keep({"beacon", "C0-C1-5C-00-00-01", "p|1000,1002,9000;9000:100"});
    writer->keep({"beacon", "C0-C1-5C-00-00-09", "|"});
  }
  EXPECT_EQ(beacons("csv").lines(),
            (std::vector<std::string>{
                "id,name,place,last_heard,usual_gap,battery,battery_per_month,temperature,humidity",
                "C0-C1-5C-00-00-01,Fridge,Kitchen,1797847200.000000,1.002,85,-15.0,,",
                "C0-C1-5C-00-00-02,,,1795255799.000000,,,,4.59,", "C0-C1-5C-00-00-09,,,,,,,,"}));
  EXPECT_EQ(beacons("jsonl").lines().front(),
            R"({"id":"C0-C1-5C-00-00-01","name":"Fridge","place":"Kitchen",)"
            R"("last_heard":"2026-12-21T10:00:00.000000Z","usual_gap":1.002,"battery":85,)"
            R"("battery_per_month":-15.0,"temperature":null,"humidity":null})");
  std::filesystem::remove(folder_ / kHistoryFileName);
  for (const char* beside : {"-wal", "-shm"})
    std::filesystem::remove(folder_.file("history.sqlite") + beside);
  EXPECT_EQ(beacons("jsonl").out, "");
  EXPECT_EQ(beacons("table").err,
            "no history in " + folder_.path().string() + "; --container names another folder\n");
}

TEST_F(KeptHistory, IsReportedAsAPage) {
  writeFile(folder_ / "brenloft.toml",
            contentsOf(folder_.file("brenloft.toml")) + "[report]\ntitle = \"North\"\n");
  const auto report = [&](const std::string& out, std::vector<std::string> more) {
    more.insert(more.begin(), {"report", "-o", out, "-C", folder_.path().string(), "--config",
                               folder_.file("brenloft.toml"), "--until", "2026-11-21T10:10Z"});
    return runTool(more);
  };
  const std::string page = report("-", {"--since", "2026-11-21T10:00Z"}).out;
  EXPECT_EQ(page.rfind("<!doctype html>", 0), 0U);
  EXPECT_NE(page.find("<title>North</title>"), std::string::npos);
  EXPECT_EQ(countOf(page, "<bdi>Fridge</bdi>"), 2U) << "in the list and by day";
  const std::string file = folder_.file("page.html");
  EXPECT_EQ(report(file, {"--since", "2026-11-21T10:00Z", "--beacon", "Fridge"}).status, 0);
  EXPECT_EQ(contentsOf(file).find("C0-C1-5C-00-00-02"), std::string::npos);
  EXPECT_EQ(report(file, {"--since", "teatime"}).status, 2);
  EXPECT_EQ(report(file, {"--since", "2026-11-21T10:09:30Z"}).err,
            "brenloft: --since: less than a minute is too short for a page\n");
  EXPECT_EQ(report(folder_.file("history.sqlite-wal"), {}).status, 2);
  const Ended none = runTool({"report", "-o", file, "-C", folder_.file("none")});
  EXPECT_EQ(none.status, 5);
}

TEST_F(KeptHistory, IsCountedCheckedCopiedAndPruned) {
  EXPECT_EQ(history({"count"}).out, "1201\n");
  EXPECT_EQ(history({"count", "--beacon", "C0-C1-5C-00-00-02", "--since", "@1795255799"}).out, "2\n");
  EXPECT_EQ(history({"last", "-F", "csv"}).lines().size(), 3U);
  const auto newest = history({"show", "--last", "2", "--beacon", "Fridge", "-F", "csv"}).lines();
  ASSERT_EQ(newest.size(), 3U);
  EXPECT_EQ(newest[1].substr(0, 5) + newest[2].substr(0, 5), "1197,1199,");
  EXPECT_EQ(history({"check"}).status, 0);
  const std::string copy = folder_.file("copy/history.sqlite");
  std::filesystem::create_directory(folder_ / "copy");
  EXPECT_EQ(history({"backup", copy}).status, 0);
  EXPECT_EQ(runTool({"history", "count", "-C", folder_.file("copy")}).out, "1201\n");
  EXPECT_EQ(history({"backup", copy}).status, 2) << "what is there stays";
  EXPECT_EQ(history({"prune", "--before", "2026-11-21T10:05Z"}).status, 2) << "nobody can be asked";
  EXPECT_EQ(history({"prune", "--before", "2026-11-21T10:05Z", "--yes"}).err, "600 rows deleted\n");
  EXPECT_EQ(history({"count"}).out, "601\n");
  EXPECT_EQ(history({"check"}).status, 0);
}

TEST_F(KeptHistory, IsDrawnAsWideAsItsReaderHasIt) {
  ::setenv("TZ", "UTC", 1);
  ::setenv("LC_ALL", "C", 1);
  const std::vector<std::string> wanted{"show",    "--plot",           "--since", "2026-11-21T10:00Z",
                                        "--until", "2026-11-21T10:10Z"};
  const std::vector<std::string> both = history(wanted).lines();
  ASSERT_EQ(both.size(), 25U) << "a chart for each beacon, of what it measures";
  EXPECT_EQ(both.front(), "Fridge: temperature in degrees Celsius, 4.00 to 4.59");
  EXPECT_EQ(std::ranges::max(both, {}, &std::string::size).size(), 80U);
  EXPECT_NE(both.at(11).find("10:10 UTC"), std::string::npos);
  const std::vector<std::string> last = history({"show", "--plot", "--last", "30"}).lines();
  ASSERT_EQ(last.size(), 25U);
  EXPECT_EQ(last.front(), "Fridge: temperature in degrees Celsius, 4.45 to 4.59");
  EXPECT_NE(last.at(11).find("10:09:59 UTC"), std::string::npos) << last.at(11);
  ::setenv("LC_ALL", "C.UTF-8", 1);
  std::vector<std::string> signal = wanted;
  signal.insert(signal.end(), {"--quantity", "rssi", "--beacon", "Fridge"});
  EXPECT_EQ(history(signal).lines().front(), "Fridge: signal in dBm, -60 to -60");
}

TEST(Chart, ShowsEverySpikeAndGap) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  Chart chart{.title = "Fridge",
              .unitSize = 100,
              .span = {kTen, kTen + std::chrono::hours(1)},
              .now = kTen,
              .points = {}};
  for (int minute = 0; minute < 60; ++minute) {
    if (minute >= 30 && minute < 40) continue;
    const bool isSpike = minute == 20;
    chart.points.push_back({kTen + std::chrono::minutes(minute), 1, 400, isSpike ? 790 : 400, 400});
  }
  chart.breaks = {30};
  EXPECT_EQ(drawn(chart, {.width = 40, .isBraille = true}), R"(Fridge
8.00 ┤           ⡆
     │           ⡇
     │           ⡇
     │           ⡇
6.00 ┤           ⡇
     │           ⡇
     │           ⡇
     │           ⡇
4.00 ┤⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣇⣀⣀⣀⣀⡀     ⢀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⡀
     └┴────────────────────────────────┴
    10:00                      11:00 UTC
)");
  EXPECT_EQ(drawn(chart, {.width = 40, .isBraille = false}), R"(Fridge
8.00 +           |
     |           |
     |           |
     |           |
6.00 +           |
     |           |
     |           |
     |           |
4.00 +...........|.....     ............
     ++--------------------------------+
    10:00                      11:00 UTC
)");
}

TEST_F(KeptHistory, WrongWordsAndDamageAreOneLineEach) {
  EXPECT_EQ(history({"show", "--since", "teatime"}).err,
            "brenloft: --since: 'teatime' is not a time such as 15:00, 2026-11-21T15:00, 2h or yesterday\n");
  EXPECT_EQ(history({"show", "--beacon", "Fridgee"}).err,
            "brenloft: --beacon: 'Fridgee' is not a beacon's name in " + folder_.file("brenloft.toml") +
                ", nor an identifier such as C0-C1-5C-00-00-01; did you mean Fridge?\n");
  EXPECT_EQ(history({"show", "--every", "0.5"}).status, 2);
  EXPECT_EQ(history({"export", "--out", folder_.file("history.sqlite-wal")}).status, 2);
  const std::string file = folder_.file("history.sqlite");
  std::string octets = contentsOf(file);
  octets.replace(octets.size() / 2, 4000, 4000, '\x55');
  writeFile(file, octets);
  for (const char* beside : {"-wal", "-shm"}) std::filesystem::remove(file + beside);
  EXPECT_EQ(history({"check"}).status, 5);
  std::filesystem::remove(file);
  const Ended none = history({"count"});
  EXPECT_EQ(none.out, "0\n");
  EXPECT_EQ(none.err, "no history in " + folder_.path().string() + "; --container names another folder\n");
}

TEST(InstantText, ReadsTimesInLocalTimeUnlessTheyHaveAZone) {
  ::setenv("TZ", "Europe/Berlin", 1);
  ::tzset();
  using namespace std::chrono_literals;
  for (const auto& [text, expected] : {std::pair{"2026-11-21T10:00Z", kTen},
                                       {"2026-11-21T11:00", kTen},
                                       {"2026-11-21 11:00:00.25", kTen + 250ms},
                                       {"2026-11-21T15:30:00+05:30", kTen},
                                       {"2026-11-21", kTen - 11h},
                                       {"2026-07-01T12:00", platform::Date(1782900000s)},
                                       {"today", kTen - 11h},
                                       {"yesterday", kTen - 35h},
                                       {"yesterday 15:00", kTen - 20h},
                                       {"15:00", kTen + 4h},
                                       {"now", kTen},
                                       {"2h", kTen - 2h},
                                       {"1d12h", kTen - 36h},
                                       {"@1795255200.5", kTen + 500ms}})
    EXPECT_EQ(instantFromText(text, kTen), expected) << text;
  for (const char* wrong :
       {"", "2026", "2026-13-01", "2026-02-30", "2026-11-21T", "2026-11-21T10", "2026-11-21T10:00x",
        "2026-11-21T10:00+", "10", "-2h", "@", "@x", "tomorrow", "today15:00", "25:00", "15:00x"})
    EXPECT_FALSE(instantFromText(wrong, kTen)) << wrong;
}

}  // namespace
}  // namespace brenloft_test
