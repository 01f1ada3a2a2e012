#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/foundation/Hex.h"
#include "platform/location/iBeaconFrame.h"
#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

std::string simulated(const TemporaryFolder& folder, const std::vector<std::string>& more = {}) {
  const std::string capture = folder.file("simulated.btsnoop");
  std::vector<std::string> arguments{"simulate", "--out", capture, "--seconds", "30", "--seed", "7"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Ended ended = runTool(arguments);
  EXPECT_EQ(ended.status, 0) << ended.err;
  return "capture:" + capture;
}

TEST(Simulate, WritesTheSameWorldForTheSameSeed) {
  TemporaryFolder folder;
  const std::vector<std::string> common{"--beacons", "3", "--ibeacons", "2", "--seconds", "20"};
  const auto write = [&](const std::string& name, const std::string& seed) {
    std::vector<std::string> arguments{"simulate", "--out", folder.file(name), "--seed", seed};
    arguments.insert(arguments.end(), common.begin(), common.end());
    EXPECT_EQ(runTool(arguments).status, 0);
    return contentsOf(folder.file(name));
  };
  const std::string first = write("a", "1");
  EXPECT_GT(first.size(), 1000U);
  EXPECT_EQ(first, write("b", "1"));
  std::vector<std::string> toOutput{"simulate", "--out", "-"};
  toOutput.insert(toOutput.end(), common.begin(), common.end());
  EXPECT_EQ(runTool(toOutput).out, first);
  EXPECT_NE(first, write("c", "2"));

  const Ended ended = runTool({"simulate", "--out", folder.file("no/such/folder")});
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("no/such/folder"), std::string::npos);
}

TEST(Hear, PrintsEveryReportOnceAndRecordsItForAnEqualReplay) {
  TemporaryFolder folder;
  const std::string source = simulated(folder, {"--ibeacons", "3"});
  const std::string copy = folder.file("copy.btsnoop");
  const Ended heard = runTool({"hear", "--source", source, "--format", "jsonl", "--record", copy});
  ASSERT_EQ(heard.status, 0) << heard.err;
  ASSERT_GT(heard.lines().size(), 100U);
  EXPECT_EQ(runTool({"hear", "--source", "capture:" + copy, "--format", "jsonl"}).out, heard.out);

  const Ended merged = runTool({"hear", "--source", source, "--format", "jsonl", "--merged"});
  EXPECT_EQ(merged.lines().size(), heard.lines().size());
  EXPECT_NE(merged.out, heard.out);

  const Ended two = runTool({"hear", "--source", source, "--format", "jsonl", "--count", "2"});
  EXPECT_EQ(two.out, heard.lines()[0] + "\n" + heard.lines()[1] + "\n");

  const auto rows = runTool({"hear", "--source", source, "--format", "csv"}).lines();
  EXPECT_EQ(rows.size(), heard.lines().size() + 1);
  for (const std::string& row : rows) EXPECT_EQ(std::count(row.begin(), row.end(), ','), 15) << row;
}

TEST(Hear, FindsNoReadingsInWhatIBeaconsAndApplesDevicesSend) {
  TemporaryFolder folder;
  const std::string zeros(40, '0');
  const std::vector<std::pair<std::string, bool>> cases{
      {"4c000215" + zeros + "c5", false},              // an iBeacon
      {"4c000215" + zeros + "c5ff", false},            // with an octet behind it
      {"4c0010020b001610" + zeros.substr(8), false},   // two messages
      {"4c00881364640003" + zeros.substr(12), true},   // a sensor at 0.76 degrees
      {"290988136464000c" + zeros.substr(12), true}};  // and at 23.45
  const auto writer = *platform::BtsnoopWriter::create(folder.file("c"));
  for (const auto& [manufacturer, isSensor] : cases) {
    platform::Data data = platform::octetsFromHex("00ff" + manufacturer).value();
    data[0] = static_cast<std::byte>(data.size() - 1);
    writer->write({.data = data});
  }
  writer->flush();
  const auto lines = runTool({"hear", "--source", "capture:" + folder.file("c"), "-F", "jsonl"}).lines();
  ASSERT_EQ(lines.size(), cases.size());
  for (std::size_t i = 0; i < lines.size(); ++i)
    EXPECT_EQ(valueOf(lines[i], "readings") != "null", cases[i].second) << lines[i];
}

TEST(Times, AreLocalForPeopleAndSecondsForProgramsUnlessAskedFor) {
  TemporaryFolder folder;
  const auto writer = *platform::BtsnoopWriter::create(folder.file("c"));
  // Before and after summer time ends.
  for (const int64_t second : {1'792'889'999, 1'792'890'000})
    writer->write({.time = platform::Date(std::chrono::seconds(second))});
  writer->flush();
  const auto times = [&](const std::vector<std::string>& more) {
    std::vector<std::string> command{"env",      "TZ=CET-1CEST,M3.5.0,M10.5.0/3", toolPath(), "hear",
                                     "--source", "capture:" + folder.file("c")};
    command.insert(command.end(), more.begin(), more.end());
    std::string texts;
    for (const std::string& line : runProgram(command).lines())
      texts += line.substr(0, line.find_first_of(" ,", 9)) + " ";
    return texts;
  };
  EXPECT_EQ(times({}), "time      2026-10-25T02:59:59.000000+02:00 2026-10-25T02:00:00.000000+01:00 ");
  EXPECT_EQ(times({"--time", "utc", "-F", "csv"}),
            "time,address 2026-10-25T00:59:59.000000Z 2026-10-25T01:00:00.000000Z ");
  EXPECT_EQ(times({"-F", "jsonl"}), "{\"time\":1792889999.000000 {\"time\":1792890000.000000 ");
  EXPECT_EQ(times({"--time", "utc", "-F", "jsonl"}),
            "{\"time\":\"2026-10-25T00:59:59.000000Z\" {\"time\":\"2026-10-25T01:00:00.000000Z\" ");
}

TEST(Hear, SaysInOneLineWhatIsWrongWithAFile) {
  TemporaryFolder folder;
  const std::string octets = contentsOf(simulated(folder).substr(8));
  writeFile(folder.file("cut"), octets.substr(0, octets.size() - 3));
  const Ended cut = runTool({"hear", "--source", "capture:" + folder.file("cut"), "-F", "jsonl"});
  EXPECT_EQ(cut.status, 0);
  EXPECT_NE(cut.err.find(folder.file("cut") + ": record "), std::string::npos) << cut.err;

  writeFile(folder.file("text"), "this is no capture\n");
  for (const std::string name : {"text", "absent"}) {
    const Ended ended = runTool({"hear", "--source", "capture:" + folder.file(name)});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find(folder.file(name)), std::string::npos) << ended.err;
  }
}

TEST(Scan, GivesTheSameLinesForEveryReplayAndEndsAtTheLastRecordWithTheLosses) {
  TemporaryFolder folder;
  const std::string source = simulated(folder);
  const std::vector<std::string> arguments{"scan", "--source", source, "--format", "jsonl", "-q"};
  const Ended first = runTool(arguments);
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(runTool(arguments).out, first.out);
  const auto lines = first.lines();
  ASSERT_GT(lines.size(), 100U);
  EXPECT_EQ(valueOf(lines[0], "event"), "\"bytes\"");
  EXPECT_EQ(valueOf(lines[1], "event"), "\"beacon\"");

  const auto heard = runTool({"hear", "--source", source, "--format", "jsonl"}).lines();
  ASSERT_FALSE(heard.empty());
  EXPECT_EQ(valueOf(lines.back(), "time"), valueOf(heard.back(), "time"));
  EXPECT_EQ(valueOf(lines.back(), "status"), "2");
  std::set<std::string> present;
  for (const std::string& line : lines) {
    if (valueOf(line, "event") != "\"beacon\"") continue;
    if (valueOf(line, "status") == "1")
      present.insert(valueOf(line, "uuid"));
    else
      present.erase(valueOf(line, "uuid"));
  }
  EXPECT_TRUE(present.empty());
}

TEST(Scan, LaysOutEachLineAsPromised) {
  TemporaryFolder folder;
  const std::string source = simulated(folder);
  const auto rows = runTool({"scan", "--source", source, "-q", "--format", "csv"}).lines();
  ASSERT_GT(rows.size(), 10U);
  for (const std::string& row : rows) EXPECT_EQ(std::count(row.begin(), row.end(), ','), 19) << row;

  for (const std::string format : {"csv", "table"})
    EXPECT_EQ(runTool({"scan", "--source", source, "-q", "-n", "1", "-F", format}).lines().size(), 2U)
        << "a header and one event";
  const std::string line =
      runTool({"scan", "--source", source, "-q", "-n", "2", "--format", "jsonl"}).lines().at(1);
  std::string keys;
  for (std::size_t at = 0; (at = line.find("\":", at)) != std::string::npos; ++at) {
    const std::size_t begin = line.rfind('"', at - 1) + 1;
    keys += line.substr(begin, at - begin) + " ";
  }
  EXPECT_EQ(
      keys,
      "event time beacon beaconType beaconId uuid major minor rssi txPower emergency battery temperature "
      "humidity uniqueId tbd status statusUpdatedDate xAccel yAccel zAccel ");
  const std::string time = valueOf(line, "time");
  EXPECT_EQ(time.size() - time.find('.') - 1, 6U);
  EXPECT_EQ(valueOf(line, "statusUpdatedDate"), time);
}

// The last octets of the sensors' identifiers. The third sensor lists the service A002.
std::string sensorsHeard(const std::string& source, const std::vector<std::string>& more) {
  std::vector<std::string> arguments{"scan", "-s", source, "-F", "csv", "-q"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  std::set<std::string> beacons;
  for (const std::string& line : runTool(arguments).lines()) {
    const auto identifier = line.find("C0-D7-0D");
    if (identifier != std::string::npos) beacons.insert(line.substr(identifier + 15, 2));
  }
  std::string text;
  for (const std::string& beacon : beacons) text += beacon + ' ';
  return text;
}

TEST(Scan, HearsOnlyWhatItsLimitsLetThrough) {
  TemporaryFolder folder;
  const std::string source = simulated(folder, {"--beacons", "8"});
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{}, "00 01 02 03 04 05 06 07 "},
      {{"--uuid", "A002"}, "02 "},
      {{"--uuid", "A002", "--uuid", "A000"}, "00 02 "},
      {{"--address", "C0:D7:0D:00:00:02", "--address", "c0:d7:0d:00:00:05"}, "02 05 "},
      {{"--min-rssi", "20"}, ""},
      {{"--company", "0xFFFF"}, ""},
      {{"--address", "C0:D7:0D:00:00:02", "--max-beacons", "1"}, "02 "},
      {{"--uuid", "A002", "--max-beacons", "1"}, "02 "},
      {{"--uuid", "A000", "--max-beacons", "1"}, "00 "}};
  for (const auto& [options, heard] : cases)
    EXPECT_EQ(sensorsHeard(source, options), heard) << testing::PrintToString(options);
  for (const std::string option : {"--max-beacons", "--new-per-minute"}) {
    EXPECT_EQ(sensorsHeard(source, {option, "3"}).size(), 9U) << option;
    EXPECT_EQ(countOf(runTool({"scan", "-s", source, "-q", option, "3"}).err, option), 1U) << option;
  }
}

TEST(Scan, TellsOnlyWhatBeginsOrEndsWhenAsked) {
  std::vector<std::string> told;
  for (const std::string& line :
       runTool({"scan", "-s", "demo", "-F", "jsonl", "-q", "--transitions"}).lines())
    told.push_back(valueOf(line, "event") + valueOf(line, "status") + valueOf(line, "emergency"));
  // Five sensors come and go; one is in an emergency for a while, and one is silent for longer than the exit
  // time.
  std::vector<std::string> expected(5, "\"beacon\"10");
  expected.insert(expected.end(), {"\"emergency\"11", "\"beacon\"20", "\"beacon\"10", "\"beacon\"10"});
  expected.insert(expected.end(), 5, "\"beacon\"20");
  EXPECT_EQ(told, expected);
}

// The events of single iBeacons, as "left 2/1".
std::vector<std::string> eventsOfRange(const std::string& source, const std::vector<std::string>& more) {
  std::vector<std::string> arguments{
      "range",    "--source", source, "--uuid", "51C70E2A-9B44-4D1F-8A63-2FD075E81C36",
      "--format", "jsonl",    "-q"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Ended ended = runTool(arguments);
  EXPECT_EQ(ended.status, 0) << ended.err;
  std::vector<std::string> events;
  for (const std::string& line : ended.lines()) {
    std::string event = valueOf(line, "event");
    if (event == "\"ranged\"") continue;
    if (event == "\"beacon\"") event = valueOf(line, "status") == "1" ? "present" : "lost";
    std::erase(event, '"');
    events.push_back(event + " " + valueOf(line, "major") + "/" + valueOf(line, "minor"));
  }
  return events;
}

std::string threeIBeacons(const TemporaryFolder& folder, const std::string& seconds) {
  const std::string capture = folder.file("ibeacons.btsnoop");
  const Ended ended =
      runTool({"simulate", "--out", capture, "--beacons", "0", "--ibeacons", "3", "--seconds", seconds});
  EXPECT_EQ(ended.status, 0) << ended.err;
  return "capture:" + capture;
}

TEST(Range, TellsOnlyTheChosenIBeaconsAndWhichOfThemLeaveAndReturn) {
  TemporaryFolder folder;
  const std::string source = threeIBeacons(folder, "45");
  using Events = std::vector<std::string>;
  EXPECT_EQ(eventsOfRange(source, {"--group", "2"}),
            (Events{"present 1/0", "present 2/1", "lost 1/0", "lost 2/1"}));
  EXPECT_EQ(eventsOfRange(source, {"--group", "2", "--left-after", "10"}),
            (Events{"present 1/0", "present 2/1", "left 2/1", "returned 2/1", "lost 1/0", "lost 2/1"}));
  const auto lastReport = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments{
        "range",        "-s", source,    "--uuid", "51C70E2A-9B44-4D1F-8A63-2FD075E81C36",
        "--left-after", "10", "--group", "2",      "-F",
        "jsonl",        "-q", "-t",      "20"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::vector<std::string> lines = runTool(arguments).lines();
    std::erase_if(lines, [](const std::string& line) { return valueOf(line, "event") != "\"ranged\""; });
    return lines.empty() ? 0 : countOf(lines.back(), "\"major\"");
  };
  EXPECT_EQ(lastReport({}), 2U);
  EXPECT_EQ(lastReport({"--present-only"}), 1U);
  EXPECT_EQ(eventsOfRange(source, {"--major", "2"}), (Events{"present 2/1", "lost 2/1"}));
  EXPECT_EQ(eventsOfRange(source, {"--minor", "1", "--group", "0"}), (Events{"present 2/1", "lost 2/1"}));
}

TEST(Range, ReportsWhatTheLastUnfinishedSecondHeld) {
  TemporaryFolder folder;
  EXPECT_EQ(eventsOfRange(threeIBeacons(folder, "1"), {"--group", "2"}),
            (std::vector<std::string>{"present 1/0", "present 2/1", "lost 1/0", "lost 2/1"}));
}

TEST(Range, HasReadingsWithoutASignalStrengthWhereNoneWasMeasured) {
  TemporaryFolder folder;
  const std::string uuid = "51C70E2A-9B44-4D1F-8A63-2FD075E81C36";
  const platform::iBeaconFrame frame{*platform::NSUUID::initWithUUIDString(uuid), 1, 2};
  platform::Data data = platform::octetsFromHex("1aff").value();
  for (const std::byte octet : platform::iBeaconManufacturerData(frame)) data.push_back(octet);
  const auto writer = *platform::BtsnoopWriter::create(folder.file("c"));
  for (const int millisecond : {0, 1300, 2300, 20'000})
    writer->write(
        {.time = platform::Date(std::chrono::seconds(1'792'890'000)) + std::chrono::milliseconds(millisecond),
         .rssi = platform::AdvertisingReport::kNoRssi,
         .data = data});
  writer->flush();
  const auto lines =
      runTool({"range", "--uuid", uuid, "-s", "capture:" + folder.file("c"), "-F", "readings"}).lines();
  const auto isReading = [](const std::string& line) { return valueOf(line, "event") == "\"reading\""; };
  EXPECT_EQ(std::ranges::count_if(lines, isReading), 4);
  for (const std::string& line : lines)
    EXPECT_TRUE(!isReading(line) || valueOf(line, "rssi") == "null") << line;
}

TEST(Scan, TellsTheLibrarysDiagnosticsOnlyWhereTheyAreAskedFor) {
  const auto said = [](const std::vector<std::string>& more) {
    std::vector<std::string> arguments{"scan", "--source", "demo", "-n", "1", "--time", "utc"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runTool(arguments).err;
  };
  EXPECT_EQ(said({}), "");
  EXPECT_EQ(said({"--verbose", "-q"}), "");
  EXPECT_TRUE(said({"--quiet", "-v"}).starts_with("2026-01-01T00:00:00.000000Z CoreDataManager"))
      << said({"-v"});
}

// The library tells of an advertisement and of its scan response; another beacon may come between.
TEST(Readings, TellOnceWhatABeaconSaysTwiceIn20Milliseconds) {
  TemporaryFolder folder;
  const auto writer = *platform::BtsnoopWriter::create(folder.file("c"));
  const auto write = [&](int millisecond, char beacon, const std::string& temperature) {
    const std::string hex = std::string("0505") + beacon + "0000000" + "17ff" + temperature + "2010005a00" +
                            beacon + "0" + std::string(28, '0');
    writer->write(
        {.time = platform::Date(std::chrono::seconds(1'792'890'000)) + std::chrono::milliseconds(millisecond),
         .rssi = -60,
         .data = platform::octetsFromHex(hex).value()});
  };
  for (const int millisecond : {0, 1, 19, 20, 39, 40}) {  // told of at 0, 20 and 40
    write(millisecond, '1', "d007");
    write(millisecond, '2', "d007");
  }
  for (const char* temperature : {"d007", "d107", "d207", "d107"})
    write(41, '1', temperature);  // two are new
  writer->flush();
  std::multiset<std::string> told;
  for (const std::string& line :
       runTool({"scan", "-s", "capture:" + folder.file("c"), "-F", "readings"}).lines())
    if (valueOf(line, "event") == "\"reading\"")
      told.insert(valueOf(line, "id") + ' ' + valueOf(line, "temperature"));
  const std::string one = "\"10-00-00-00-00-00\" ";
  const std::string other = "\"20-00-00-00-00-00\" ";
  EXPECT_EQ(told,
            (std::multiset<std::string>{one + "20.00", one + "20.00", one + "20.00", one + "20.01",
                                        one + "20.02", other + "20.00", other + "20.00", other + "20.00"}));
}

// The count of one program's lines against what another kept: every reading of every beacon is there.
TEST(Readings, AreAllThereInEveryOutput) {
  TemporaryFolder folder;
  const std::string source = simulated(folder, {"--beacons", "8"});
  std::size_t heard = 0;
  for (const std::string& line : runTool({"hear", "-s", source, "-F", "jsonl"}).lines())
    heard += valueOf(line, "readings") != "null" ? 1 : 0;
  ASSERT_GT(heard, 100U);

  writeFile(folder.file("toml"), "[beacon.\"C0-D7-0D-00-00-01\"]\nname = \"Fridge\"\ntemperature = 1\n");
  const Ended ended = runTool({"scan", "-s", source, "-F", "readings", "--out",
                               "influx:" + folder.file("influx"), "--history", "-C", folder.file("c"),
                               "--config", folder.file("toml"), "--metrics-file", folder.file("metrics")});
  ASSERT_EQ(ended.status, 0) << ended.err;
  const std::string influx = contentsOf(folder.file("influx"));
  EXPECT_EQ(countOf(ended.out, R"("event":"reading")"), heard);
  EXPECT_EQ(countOf(influx, "reading,"), heard);
  EXPECT_EQ(countOf(influx, "reading,id=C0-D7-0D-00-00-01,name=Fridge "), countOf(influx, "raw_temperature"));
  const std::size_t events = countOf(influx, "event,");
  EXPECT_EQ(runTool({"history", "count", "-C", folder.file("c")}).out, std::to_string(heard + events) + "\n");

  const std::string metrics = contentsOf(folder.file("metrics"));
  for (const auto& [name, value] :
       {std::pair<std::string, std::size_t>("readings_total{verdict=\"plausible\"}", heard),
        {"output_dropped_records_total{output=\"" + folder.file("influx") + "\"}", std::size_t{0}},
        {"beacon_present{beacon=\"C0-D7-0D-00-00-01\",name=\"Fridge\"}", std::size_t{1}}})
    EXPECT_EQ(countOf(metrics, "\nbrenloft_" + name + ' ' + std::to_string(value) + '\n'), 1U) << metrics;

  const Ended known = runTool({"scan", "-s", source, "--out", "readings:-", "--only", "known",
                               "--transitions", "--config", folder.file("toml")});
  EXPECT_EQ(known.lines().size(), countOf(known.out, R"("name":"Fridge")"));
  EXPECT_EQ(countOf(known.out, R"("event":"reading")"), 0U);
  for (const char* wrong :
       {"--out=readings", "--out=foo:x", "--only=Fridge", "--exit-time=0", "--keep-size=1"})
    EXPECT_EQ(runTool({"scan", "-s", source, wrong}).status, 2) << wrong;
  EXPECT_EQ(runTool({"scan", "-s", source, "--out", "influx:" + folder.file("no/such")}).status, 1);
}

}  // namespace
}  // namespace brenloft_test
