#include <gtest/gtest.h>

#include "tests/support/PseudoTerminals.h"
#include "tests/tool/RunTool.h"
#include "tests/tool/TerminalProgram.h"

namespace brenloft_test {
namespace {

class LiveTable : public testing::Test {
 protected:
  void SetUp() override {
    if (!support::hasPseudoTerminals()) GTEST_SKIP() << support::kNoPseudoTerminals;
  }
};

const std::vector<std::string> kScan{"env",  "-u",       "NO_COLOR",   "TERM=xterm", toolPath(),
                                     "scan", "--source", "demo?paced", "-q"};
constexpr const char* kHeader = "state    heard";
constexpr const char* kAnyDevice = "C0-C1-5C-00-00-";

// The five sensors of the demonstration, and nothing but the one table.
bool isWhole(const Screen& screen) {
  return screen.linesBeginning(kHeader) == 1 && screen.linesWith(kAnyDevice) == 5;
}

TEST_F(LiveTable, IsRedrawnInPlaceUntilCtrlC) {
  TerminalProgram tool(kScan, 24, 80);
  ASSERT_TRUE(tool.waitFor([&] { return tool.screen().linesWith(kAnyDevice) == 5; }));
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(tool.waitForTable());
    EXPECT_TRUE(isWhole(tool.screen()));
  }
  for (const char* device : {"00-00", "00-01", "00-02", "00-03", "00-04"})
    EXPECT_EQ(tool.screen().linesWith(std::string("C0-C1-5C-00-") + device), 1U) << device;
  tool.type("\x03");
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_TRUE(tool.screen().isCursorShown());
  EXPECT_TRUE(tool.screen().hadColour()) << "what is lost is dim";
  EXPECT_EQ(tool.screen().linesBeginning(kHeader), 1U);
  EXPECT_EQ(tool.screen().linesBeginning("lost"), 5U);
}

TEST_F(LiveTable, FindsItsPlaceAgainOnAnotherSizeAndBehindAShell) {
  TerminalProgram tool(kScan, 24, 80);
  ASSERT_TRUE(tool.waitFor([&] { return isWhole(tool.screen()); }));
  tool.resize(20, 50);
  ASSERT_TRUE(tool.waitForNewScreen());
  EXPECT_TRUE(isWhole(tool.screen()));
  ASSERT_TRUE(tool.waitForTable());
  EXPECT_TRUE(isWhole(tool.screen()));

  tool.stop();
  tool.screen().feed("^Z\r\n[1]+  Stopped\r\n$ fg\r\n");
  tool.goOn();
  ASSERT_TRUE(tool.waitForNewScreen());
  EXPECT_TRUE(isWhole(tool.screen()));
  EXPECT_EQ(tool.screen().linesWith("Stopped"), 0U);
}

TEST_F(LiveTable, LeavesTheTerminalUsableWhenASaveFails) {
  TemporaryFolder folder;
  TerminalProgram tool(
      {"env", "TERM=xterm", "sh", "-c", "ulimit -f 72; exec \"$0\" scan --source demo --log -q -C \"$1\"",
       toolPath(), folder.file("c")},
      24, 200);
  EXPECT_EQ(tool.wait(), 5);
  EXPECT_TRUE(tool.screen().isCursorShown());
  EXPECT_EQ(tool.screen().linesBeginning("brenloft: " + folder.file("c")), 1U);
}

TEST_F(LiveTable, HasNoColourWhereNoneIsWanted) {
  TerminalProgram tool(
      {"env", "NO_COLOR=1", "TERM=xterm", toolPath(), "scan", "--source", "demo", "--duration", "10", "-q"},
      24, 80);
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_EQ(tool.screen().linesBeginning("lost"), 5U);
  EXPECT_FALSE(tool.screen().hadColour());
}

TEST_F(LiveTable, IsNoneWhereTheTerminalTakesNoControlSequences) {
  TerminalProgram tool({"env", "TERM=dumb", toolPath(), "scan", "--source", "demo", "--count", "3", "-q"}, 24,
                       200);
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_FALSE(tool.screen().hadSequences());
  EXPECT_EQ(tool.screen().linesWith(kAnyDevice), 3U);
}

}  // namespace
}  // namespace brenloft_test
