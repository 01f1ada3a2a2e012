#include <algorithm>
#include <map>
#include <regex>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/support/PseudoTerminals.h"
#include "tests/tool/RunTool.h"
#include "tools/brenloft/LiveRows.h"

namespace brenloft_test {
namespace {

constexpr const char* kHeader = "age heard";
constexpr const char* kDevice = "C0-C1-5C-00-00-";

// A shell on a terminal of tmux, and what stands on it.
class Terminal {
 public:
  Terminal() {
    run({"new-session", "-d", "-x", "80", "-y", "24",
         "env -u NO_COLOR TERM=xterm TOOL=" + toolPath() + " PS1='$ ' bash --norc --noprofile -i"});
  }
  ~Terminal() { run({"kill-server"}); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void type(const std::string& key) { run({"send-keys", key}); }
  void enter(const std::string& command) { run({"send-keys", command, "Enter"}); }
  void resize(const char* columns, const char* rows) { run({"resize-window", "-x", columns, "-y", rows}); }
  std::string screen() { return run({"capture-pane", "-p"}); }
  /// Looks until the screen is as wanted; "" when it never is.
  template <typename Condition>
  std::string waitFor(const Condition& isAsWanted) {
    for (int look = 0; look < 2000; ++look)
      if (const std::string now = screen(); isAsWanted(now)) return now;
    return "";
  }
  /// The next screen that holds the five sensors of the demonstration below one header.
  std::string waitForTable(const std::string& before = {}) {
    return waitFor([&](const std::string& now) {
      return now != before && countOf(now, kHeader) == 1 && countOf(now, kDevice) == 5;
    });
  }

 private:
  std::string run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"tmux", "-f", "/dev/null", "-S", folder_.file("socket")});
    return runProgram(arguments).out;
  }

  const TemporaryFolder folder_;
};

class LiveTable : public testing::Test {
 protected:
  void SetUp() override {
    if (!support::hasPseudoTerminals()) GTEST_SKIP() << support::kNoPseudoTerminals;
    if (!hasProgram("tmux") || !hasProgram("script")) GTEST_SKIP() << "tmux or script is not installed";
  }
};

TEST_F(LiveTable, IsRedrawnInPlaceUntilCtrlC) {
  Terminal terminal;
  terminal.enter("clear; $TOOL scan --source demo?paced -q; echo status $?");
  std::string table = terminal.waitForTable();
  for (int i = 0; i < 3; ++i) table = terminal.waitForTable(table);
  for (const char* device : {"00", "01", "02", "03", "04"})
    EXPECT_EQ(countOf(table, std::string(kDevice) + device), 1U) << device << table;
  terminal.type("C-c");
  table = terminal.waitFor([](const auto& now) { return countOf(now, "\nstatus 0\n") == 1; });
  EXPECT_EQ(countOf(table, kHeader), 1U) << terminal.screen();
  EXPECT_EQ(countOf(table, "5 beacons"), 1U) << table;
  EXPECT_EQ(countOf(table, " present "), 5U) << table;
  terminal.enter("stty -a | tr ';' '\\n'");
  table = terminal.waitFor([](const auto& now) { return countOf(now, "-extproc") == 1; });
  EXPECT_EQ(countOf(table, "-icanon") + countOf(table, "-echo "), 0U) << table;
}

TEST_F(LiveTable, NamesSortsAndMarks) {
  TemporaryFolder folder;
  writeFile(folder / "brenloft.toml",
            "[beacon.\"C0-C1-5C-00-00-03\"]\nname = \"Äpfel\"\nplace = \"Keller\"\n"
            "[[alarm]]\nname = \"Über Null\"\nbeacon = \"C0-C1-5C-00-00-03\"\nquantity = "
            "\"temperature\"\nabove = -50\n");
  Terminal terminal;
  terminal.enter("clear; $TOOL scan --source demo?paced -q --config " + folder.file("brenloft.toml"));
  std::string table = terminal.waitForTable();
  EXPECT_LT(table.find(kDevice + std::string("00")), table.find(kDevice + std::string("03"))) << table;
  terminal.type("n");
  table = terminal.waitFor([](const auto& now) {
    return countOf(now, "by name;") == 1 && now.find("5C-00-00-03 ") < now.find("5C-00-00-00 ");
  });
  EXPECT_TRUE(std::regex_search(table, std::regex("C0-C1-5C-00-00-03 Über Null +Äpfel +Keller +\\ds "
                                                  "[0-9:]{8} +[0-9.-]+ +[0-9.]+ +[0-9]+ +-[0-9]+\n")))
      << table << terminal.screen();

  terminal.type("C-c");
  terminal.enter("clear; $TOOL scan --source demo?paced -q --only C0-C1-5C-00-00-02");
  table = terminal.waitFor([](const auto& now) { return countOf(now, "1 beacon;") == 1; });
  EXPECT_EQ(countOf(table, kDevice), 1U) << table;
}

TEST_F(LiveTable, FindsItsPlaceAgainOnAnotherSizeAndBehindAShell) {
  Terminal terminal;
  terminal.enter("clear; $TOOL scan --source demo?paced -q");
  std::string table = terminal.waitForTable();
  terminal.resize("50", "20");
  for (int i = 0; i < 3; ++i) table = terminal.waitForTable(table);
  EXPECT_EQ(countOf(table, "5 beacons"), 1U) << terminal.screen();

  terminal.type("C-z");
  terminal.waitFor([](const auto& now) { return countOf(now, "Stopped") == 1; });
  terminal.enter("fg");
  for (int i = 0; i < 3; ++i) table = terminal.waitForTable(table);
  EXPECT_NE(table, "") << terminal.screen();
  EXPECT_EQ(table.find("Stopped"), std::string::npos) << table;
}

TEST_F(LiveTable, LeavesTheTerminalUsableWhenASaveFails) {
  TemporaryFolder folder;
  const Ended ended = runOnTerminal("sh -c 'ulimit -f 72; exec " + toolPath() +
                                    " scan --source demo --log -q -C " + folder.file("c") + "'");
  EXPECT_EQ(ended.status, 5);
  EXPECT_GT(ended.out.rfind("\x1b[?25h"), ended.out.rfind("\x1b[?25l")) << "the cursor is shown";
  EXPECT_NE(ended.out.find("brenloft: " + folder.file("c")), std::string::npos) << ended.out;
}

TEST_F(LiveTable, IsColouredUnlessNoColourIsWanted) {
  const std::string scan = toolPath() + " scan --source demo --duration 10 -q";
  const std::regex colour("\x1b\\[[1-9][0-9;]*m");
  EXPECT_TRUE(std::regex_search(runOnTerminal("NO_COLOR= " + scan).out, colour)) << "what is lost is dim";
  EXPECT_FALSE(std::regex_search(runOnTerminal("NO_COLOR=1 " + scan).out, colour));
}

TEST_F(LiveTable, IsNoneWhereTheTerminalTakesNoControlSequences) {
  const std::string out = runOnTerminal("TERM=dumb " + toolPath() + " scan --source demo --count 3 -q").out;
  EXPECT_EQ(out.find('\x1b'), std::string::npos) << out;
  EXPECT_EQ(countOf(out, kDevice), 3U) << out;
}

// The rows alone, without a terminal.
class LiveRowsOfMany : public testing::Test {
 protected:
  static constexpr int kMost = brenloft::LiveRows::kMost;

  static brenloft::BeaconId beacon(int number) {
    return brenloft::BeaconId::sensor(fmt::format("number {};", number));
  }
  brenloft::Reading reading(int number) {
    return {.beacon = beacon(number), .heard = platform::Date(std::chrono::seconds(++seconds_))};
  }
  void hear(int number) { EXPECT_TRUE(rows_.take(reading(number))); }
  void hearStranger(int number) { rows_.takeStranger(reading(number)); }
  /// Draws them, too.
  bool isShown(int number) {
    const auto shown = rows_.shown({}, 200, 2 * kMost, times_);
    return std::ranges::any_of(
        shown.lines, [&](const auto& line) { return countOf(line.text, beacon(number).text()) == 1; });
  }

  std::map<brenloft::BeaconId, std::string> names_;
  std::size_t asked_ = 0;
  int64_t seconds_ = 0;
  brenloft::TimeText times_{brenloft::TimeForm::utc};
  brenloft::LiveRows rows_{[this](const brenloft::BeaconId& id) {
                             ++asked_;
                             const auto known = names_.find(id);
                             return brenloft::Label{.name = known == names_.end() ? "" : known->second};
                           },
                           [](const brenloft::BeaconId&) { return std::vector<std::string>{}; }};
};

TEST_F(LiveRowsOfMany, LookAtNoOthersForANewBeacon) {
  for (int i = 0; i < kMost + 100; ++i) hear(i);
  EXPECT_LE(asked_, kMost + 100U);
}

TEST_F(LiveRowsOfMany, LoseStrangersFirstThenThoseHeardLongestAgo) {
  names_[beacon(0)] = "Fridge";
  for (int i = 0; i < kMost; ++i) hear(i);
  hearStranger(1);
  hear(kMost);
  EXPECT_TRUE(isShown(0) && !isShown(1) && isShown(2));
  hear(3);
  hear(kMost + 1);
  hear(kMost + 2);
  EXPECT_TRUE(isShown(0) && !isShown(2) && isShown(3) && !isShown(4) && isShown(5));
}

TEST_F(LiveRowsOfMany, LoseNoneWithANameForOneWithout) {
  for (int i = 0; i < kMost; ++i) hear(i);
  names_[beacon(0)] = "Fridge";  // by settings that are read again
  EXPECT_TRUE(isShown(0));
  hear(kMost);
  EXPECT_TRUE(isShown(0) && !isShown(1));

  for (int i = 0; i <= kMost; ++i) names_[beacon(i)] = "Shelf";
  EXPECT_TRUE(isShown(2));
  hear(-1);
  hearStranger(-2);
  EXPECT_TRUE(isShown(0) && isShown(2) && !isShown(-1) && !isShown(-2));
  hear(1);
  EXPECT_TRUE(isShown(1) && !isShown(0) && isShown(2));
  names_.erase(beacon(kMost));
  EXPECT_TRUE(isShown(kMost));
  hear(0);
  EXPECT_TRUE(isShown(0) && isShown(2) && !isShown(kMost));
}

}  // namespace
}  // namespace brenloft_test
