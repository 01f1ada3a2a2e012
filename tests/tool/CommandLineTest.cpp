#include <algorithm>
#include <utility>

#include <gtest/gtest.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

TEST(CommandLine, ThatMakesNoSenseIsOneShortLineAndTwo) {
  const std::string uuid = "11111111-2222-3333-4444-555555555555";
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
      {{}, ""},
      {{"bogus"}, "no such command: bogus\n"},
      {{"scna"}, "no such command: scna; did you mean scan?"},
      {{"log", "shwo"}, "no such command: shwo; did you mean show?"},
      {{"help", "log", "exprot"}, "no such command: exprot; did you mean export?"},
      {{"scan", "--bogus"}, "not expected: --bogus\n"},
      {{"scan", "one", "--exit", "two"}, "not expected: one --exit two; did you mean --exit-time?"},
      {{"range", "--uuid", uuid, "--exit-time", "3"}, "not expected: --exit-time 3"},
      {{"scan", "--bogus\nline"}, "--bogus?line"},
      {{"scan", "--count"}, "--count"},
      {{"scan", "--format", "xml"}, "--format: 'xml' is not table, jsonl, csv, readings, influx or none"},
      {{"scan", "--format", "jsno"}, "did you mean jsonl?"},
      {{"scan", "--source", "bluz:hci1"}, "no such source: bluz:hci1; did you mean bluez:hci1?"},
      {{"scan", "--count", "0"}, "--count: '0' is not a whole number above 0"},
      {{"scan", "--out", "jsonl:x"},
       "--out: jsonl goes to standard output only, by --format; a file takes readings or influx"},
      {{"scan", "--log-exit-time", "auto"}, "--log-exit-time: 'auto' is not a duration above 0"},
      {{"scan", "--log", "--log-keep", "30"},
       "30 of what? 30d are days, 30h hours, 30m minutes, 30s seconds"},
      {{"scan", "--log-keep", "1d"}, "--log-max and --log-keep: they need --log"},
      {{"range", "--uuid", "51C70E2A-9B44-4D1F-8A63-2FD075E81C36", "--keep", "1d"},
       "--history-interval, --history-deadband, --keep and --keep-size: they need --history"},
      {{"scan", "--metrics-interval", "5"}, "--metrics-interval: it needs --metrics-file"},
      {{"scan", "--metrics-file", "x", "--metrics-interval", "0.5"}, "'0.5' is not a duration of 1 or more"},
      {{"scan", "-s", "demo", "--metrics-file", "/dev/null"},
       "--metrics-file: /dev/null is not a regular file"},
      {{"history", "show", "--plot", "--every", "3"}, "--plot does not go with --every"},
      {{"history", "show", "--every", "10sec"},
       "'10sec' is not a duration of whole seconds; did you mean 10s?"},
      {{"history", "last", "--at", "2026-01-01", "00:00:30Z"},
       "00:00:30Z; a value with a blank needs quotes: --at '2026-01-01 00:00:30Z'"},
      {{"log", "count", "--since", "2 hours ago"}, "did you mean 2h?"},
      {{"log", "delete", "--before", ""}, "--before: '' is not a time such as"},
      {{"history", "show", "--plot", "-F", "csv"}, "--plot does not go with --format"},
      {{"history", "show", "--quantity", "rssi"}, "--quantity needs --plot"},
      {{"log", "show", "--last", "-1"}, "--last: '-1' is not a whole number above 0"},
      {{"log", "show", "--last", "99999999999999999999"},
       "--last: '99999999999999999999' is not a whole number"},
      {{"log", "show", "--last", "3x"}, "--last: '3x' is not a whole number above 0"},
      {{"scan", "--exit-time", "0"}, "--exit-time: '0' is neither auto nor a duration above 0"},
      {{"scan", "--exit-time", "1e-9"}, "--exit-time: '1e-9' is neither auto nor a duration above 0"},
      {{"scan", "--exit-time", "nan"}, "--exit-time: 'nan' is neither auto nor a duration above 0"},
      {{"scan", "--exit-time", "inf"}, "--exit-time: 'inf' is neither auto nor a duration above 0"},
      {{"scan", "--exit-time", "-5"}, "--exit-time: '-5' is neither auto nor a duration above 0"},
      {{"scan", "--duration", "5y"}, "--duration: '5y' is not a duration"},
      {{"scan", "--uuid", "zz"}, "--uuid: 'zz'"},
      {{"scan", "--source", "zz"}, "zz"},
      {{"range"}, "--uuid"},
      {{"range", "--uuid", uuid, "--major", "65536"}, "--major"},
      {{"range", "--uuid", uuid, "--group", "3"}, "--group"},
      {{"range", "--uuid", uuid, "--left-after", "9.9"}, "--left-after"},
      {{"simulate", "--out", "/nonexistent", "--beacons", "4294967296"},
       "--beacons: '4294967296' is too large"},
      {{"simulate", "--out", "/nonexistent", "--beacons", "16777216", "--ibeacons", "1"}, "16777216 in all"},
      {{"simulate", "--out", "/nonexistent", "--seed", "-1"}, "--seed: '-1' is not a whole number"},
      {{"log", "show", "--format", "csv"}, "--format: 'csv' is not table or jsonl"},
      {{"hear"}, "--source"},
      {{"range", "--uuid", "FFF0"}, "--uuid: 'FFF0'"},
      {{"log", "count", "--container", ""}, "--container: the name is empty"},
      {{"log", "export", "--out", ""}, "--out: the name is empty"},
      {{"scan", "--record", "-"}, "--record: standard output has the data already"},
      {{"scan", "--record", ""}, "--record: the name is empty"},
      {{"tag", "set", "key", "--file", ""}, "--file: the name is empty"},
  };
  for (const auto& [arguments, named] : wrong) {
    const Ended ended = runTool(arguments);
    EXPECT_EQ(ended.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(ended.err.find("brenloft: "), 0U) << ended.err;
    EXPECT_NE(ended.err.find(named), std::string::npos) << ended.err;
    EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    EXPECT_LT(ended.err.size(), 200U) << ended.err;
    EXPECT_EQ(ended.out, "");
  }
}

TEST(CommandLine, HelpAndVersionGoToStandardOutput) {
  const auto output = [](const std::vector<std::string>& arguments) {
    const Ended ended = runTool(arguments);
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.out, "");
    EXPECT_EQ(ended.err, "");
    return ended.out;
  };
  EXPECT_EQ(output({"help"}), output({"--help"}));
  EXPECT_EQ(output({"help", "log", "show"}), output({"log", "show", "--help"}));
  EXPECT_EQ(output({"-V"}), output({"--version"}));
}

TEST(CommandLine, ExitTimesHaveUnits) {
  const auto scan = [](const std::string& exitTime) {
    const Ended ended = runTool(
        {"scan", "--source", "demo", "--duration", "30", "--exit-time", exitTime, "-q", "-F", "jsonl"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    return ended.out;
  };
  const std::string shorter = scan("1.5");
  EXPECT_EQ(scan("1500ms"), shorter);
  EXPECT_NE(scan("1m"), shorter);
  EXPECT_EQ(scan("1d1h"), scan("25h"));
}

// The readings of this one are all zero.
const std::string kZero(44, '0');

TEST(Decode, PrintsTheTenReadingsOfEachArgumentAndNullForAShortOne) {
  const Ended ended = runTool({"decode", "--format", "jsonl", kZero,
                               "0080ffffff64020c61cf123456fc1803e8800001020aEE", kZero.substr(2), ""});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(
      ended.out,
      R"({"uniqueId":"00-00-00-00-00-00","txPower":0,"temperature":"","humidity":"","battery":0,)"
      R"("emergency":0,"tbd":"000000","xAccel":"0","yAccel":"0","zAccel":"0"})"
      "\n"
      R"({"uniqueId":"0C-61-CF-12-34-56","txPower":255,"temperature":"-327.68","humidity":"655.35",)"
      R"("battery":100,"emergency":2,"tbd":"01020A","xAccel":"-1000","yAccel":"1000","zAccel":"-32768"})"
      "\nnull\nnull\n");
}

TEST(Decode, AnswersEachLineOfStandardInputWithOne) {
  const Ended ended = runTool({"decode", "-F", "jsonl"}, kZero + "\r\n\n2909" + std::string(40, '0'));
  EXPECT_EQ(ended.status, 0);
  ASSERT_EQ(ended.lines().size(), 3U);
  EXPECT_EQ(ended.lines()[1], "null");
  EXPECT_NE(ended.lines()[2].find(R"("temperature":"23.45")"), std::string::npos);
}

TEST(Decode, TakesOctetsAsTheyAreWrittenElsewhere) {
  const std::string rest = "ff64000c61cf123456fc1803e8800001020a";
  const Ended ended = runTool({"decode", "-F", "csv", "0x29098813" + rest, " 29 09\t88 13 " + rest,
                               "29:09-88:13:" + rest, "0X29 0x09 0x88 0x13" + rest, "29:09"});
  EXPECT_EQ(ended.err, "");
  const std::string row = "0C-61-CF-12-34-56,255,23.45,50.00,100,0,01020A,-1000,1000,-32768\n";
  EXPECT_EQ(ended.out, "uniqueId,txPower,temperature,humidity,battery,emergency,tbd,xAccel,yAccel,zAccel\n" +
                           row + row + row + row + ",,,,,,,,,\n");
  EXPECT_EQ(runTool({"decode", "2:9"}).err, "brenloft: argument 1: character 2 is not a hexadecimal digit\n");
}

TEST(Decode, NamesThePlaceOfWhatIsNoFrameAndKeepsWhatCameBefore) {
  const Ended argument = runTool({"decode", "-F", "jsonl", kZero, "00zz"});
  EXPECT_EQ(argument.status, 1);
  EXPECT_EQ(argument.err, "brenloft: argument 2: character 3 is not a hexadecimal digit\n");
  EXPECT_EQ(argument.lines().size(), 1U);

  const Ended line = runTool({"decode", "-F", "jsonl"}, kZero + "\n000\n");
  EXPECT_EQ(line.status, 1);
  EXPECT_EQ(line.err, "brenloft: standard input: line 2: an odd number of hexadecimal digits\n");
}

}  // namespace
}  // namespace brenloft_test
