#include <gtest/gtest.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

// The readings of this one are all zero.
const std::string kZero(44, '0');

TEST(Decode, PrintsTheTenReadingsOfEachArgumentAndNullForAShortOne) {
  const Ended ended = runTool({"decode", "--format", "jsonl", kZero,
                               "0080ffffff6402"
                               "0c61cf123456"
                               "fc1803e88000"
                               "01020aEE",
                               kZero.substr(2), ""});
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

TEST(Decode, NamesThePlaceOfWhatIsNoFrameAndKeepsWhatCameBefore) {
  const Ended argument = runTool({"decode", "-F", "jsonl", kZero, "00zz"});
  EXPECT_EQ(argument.status, 1);
  EXPECT_EQ(argument.err, "brenloft: argument 2: character 3 is no hexadecimal digit\n");
  EXPECT_EQ(argument.lines().size(), 1U);

  const Ended line = runTool({"decode", "-F", "jsonl"}, kZero + "\n000\n");
  EXPECT_EQ(line.status, 1);
  EXPECT_EQ(line.err, "brenloft: standard input: line 2: an odd number of hexadecimal digits\n");
}

TEST(Usage, EndsWithTwoForWhatMakesNoSenseAndZeroForHelp) {
  TemporaryFolder folder;
  const std::vector<std::vector<std::string>> wrong{
      {},
      {"nosuch"},
      {"decode", "--format", "xml", kZero},
      {"hear"},
      {"simulate", "--out", folder.file("s"), "--seed", "-1"},
      {"simulate", "--out", folder.file("s"), "--beacons", "16777217"},
      {"simulate", "--out", folder.file("s"), "--beacons", "16777216", "--ibeacons", "1"},
      {"hear", "--source", "teapot:1"},
      {"scan", "--source", "demo", "--uuid", "12345"},
      {"range", "--source", "demo"},
      {"range", "--source", "demo", "--uuid", "FFF0"},
      {"range", "--source", "demo", "--uuid", "00010203-0405-0607-0809-0A0B0C0D0E0F", "--major", "65536"},
      {"scan", "--source", "demo", "--exit-time", "0"},
      {"scan", "--source", "demo", "--duration", "ten"},
      {"log", "delete", "--container", folder.file("")},
  };
  for (const auto& arguments : wrong) {
    const Ended ended = runTool(arguments);
    EXPECT_EQ(ended.status, 2) << testing::PrintToString(arguments) << ended.err;
    EXPECT_EQ(ended.out, "") << testing::PrintToString(arguments);
    EXPECT_NE(ended.err, "") << testing::PrintToString(arguments);
  }
  for (const auto& misspelt : {std::vector<std::string>{"nosuch"}, {"log", "nosuch"}})
    EXPECT_NE(runTool(misspelt).err.find("nosuch"), std::string::npos);
  for (const char* help : {"--help", "--version"}) EXPECT_EQ(runTool({help}).status, 0);
}

TEST(Usage, AClosedPipeEndsTheToolQuietly) {
  TemporaryFolder folder;
  const std::string capture = folder.file("c.btsnoop");
  ASSERT_EQ(runTool({"simulate", "--out", capture, "--beacons", "50", "--seconds", "60"}).status, 0);
  for (const std::string command : {"hear", "scan -q"}) {
    const Ended ended =
        runProgram({"bash", "-c",
                    std::string(BRENLOFT_TOOL) + " " + command + " --source capture:" + capture +
                        " --format jsonl | head -n 1; exit ${PIPESTATUS[0]}"});
    EXPECT_EQ(ended.status, 0) << command;
    EXPECT_EQ(ended.err, "") << command;
    EXPECT_EQ(ended.lines().size(), 1U) << command;
  }
}

}  // namespace
}  // namespace brenloft_test
