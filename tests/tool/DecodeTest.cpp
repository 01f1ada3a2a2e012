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

TEST(Decode, TakesOctetsAsTheyAreWrittenElsewhere) {
  const std::string rest = "ff64000c61cf123456fc1803e8800001020a";
  const Ended ended = runTool({"decode", "-F", "csv", "0x29098813" + rest, " 29 09\t88 13 " + rest,
                               "29:09-88:13:" + rest, "0X29 0x09 0x88 0x13" + rest, "29:09"});
  EXPECT_EQ(ended.err, "");
  const std::string row = "0C-61-CF-12-34-56,255,23.45,50.00,100,0,01020A,-1000,1000,-32768\n";
  EXPECT_EQ(ended.out, "uniqueId,txPower,temperature,humidity,battery,emergency,tbd,xAccel,yAccel,zAccel\n" +
                           row + row + row + row + ",,,,,,,,,\n");
  EXPECT_EQ(runTool({"decode", "2:9"}).err, "brenloft: argument 1: character 2 is no hexadecimal digit\n");
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

}  // namespace
}  // namespace brenloft_test
