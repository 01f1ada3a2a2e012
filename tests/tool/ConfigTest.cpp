#include <regex>

#include <gtest/gtest.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

class Config : public testing::Test {
 protected:
  std::string file(const std::string& text) {
    const std::string path = folder_.path() / "settings.toml";
    writeFile(path, text);
    return path;
  }

 private:
  TemporaryFolder folder_;
};

TEST_F(Config, HoldsTheOptionsThatTheCommandLineDoesNotGive) {
  const std::string path = file(
      "time = \"utc\"\n[scan]\nformat = \"csv\"\nsource = \"demo\"\ncount = 2\nverbose = true\n"
      "[range]\nuuid = \"F7826DA6-4FA2-4E98-8024-BC5B71E0893E\"\nsource = \"demo\"\n");
  const Ended scan = runTool({"scan", "--config", path});
  EXPECT_EQ(scan.status, 0) << scan.err;
  ASSERT_EQ(scan.lines().size(), 3U);
  EXPECT_EQ(scan.lines()[1].find("beacon,2026-01-01T00:00:00."), 0U) << scan.out;
  EXPECT_NE(scan.err, "");

  const Ended other = runTool({"scan", "-q", "-F", "jsonl", "-n1", "--config", path});
  ASSERT_EQ(other.lines().size(), 1U);
  EXPECT_EQ(other.lines()[0][0], '{');
  EXPECT_EQ(other.err, "");

  // What must be given may stand in the file.
  EXPECT_EQ(runTool({"range", "--config", path, "-t", "1"}).err, "");
}

TEST_F(Config, ThatIsWrongStartsNothingAndIsToldLineByLine) {
  const std::string path = file("[scan]\ncoutn = 1\nuuid = \"FFF\"\n[log.show]\nlast = 0\n");
  const Ended checked = runTool({"config", "check", path});
  EXPECT_EQ(checked.status, 2);
  EXPECT_EQ(checked.err, "brenloft: " + path +
                             ":2: coutn is not an option of scan; did you mean count?\nbrenloft: " + path +
                             ":3: --uuid: 'FFF' is not a UUID of 4, 8 or 32 digits, for scan\nbrenloft: " +
                             path + ":5: --last: '0' is not a whole number above 0, for log show\n");
  const Ended scan = runTool({"scan", "--config", path, "--source", "demo"});
  EXPECT_EQ(scan.status, 2);
  EXPECT_EQ(scan.out, "");
  EXPECT_EQ(scan.err,
            "brenloft: " + path +
                ":2: coutn is not an option of scan; did you mean count? (and 2 more; see 'brenloft config "
                "check')\n");
  EXPECT_EQ(runTool({"scan", "--help", "--config", path}).status, 0);
  EXPECT_EQ(runTool({"--config", path, "log", "show"}).err,
            "brenloft: --config goes after the command: brenloft log show --config " + path + "\n");
}

TEST_F(Config, CheckRefusesWhatACommandWouldAtItsStart) {
  const std::string text =
      "[beacon.\"C0:C1:5C:00:00:01\"]\nname = \"fridge\"\n"
      "[history.show]\nbeacon = \"frigde\"\n[publish]\nkeep = \"3d\"\n[range]\nsource = \"demo\"\n"
      "[scan]\nonly = [\"known\", \"fridge\"]\nmetrics-file = \"/dev/null\"\n"
      "[serve]\nlisten = \"0.0.0.0:8880\"\n";
  const std::string path = file(text);
  const std::string at = "brenloft: " + path;
  const Ended refused = runTool({"config", "check", path});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err,
            at + ":4: --beacon: 'frigde' is not a beacon's name in " + path +
                ", nor an identifier such as C0-C1-5C-00-00-01; did you mean fridge?, for history show\n" +
                at + ":6: --keep requires --source, for publish\n" + at +
                ":11: --metrics-file: /dev/null is not a regular file, for scan\n" + at +
                ":13: --listen 0.0.0.0:8880: others reach this address; --token FILE asks them for a token, "
                "--insecure lets everybody look, for serve\n");
  const Ended one = runTool({"scan", "--source", "demo", "-F", "readings", "-n9", "--only", "fridge",
                             "--config", file("[beacon.\"C0:C1:5C:00:00:01\"]\nname = \"fridge\"\n")});
  EXPECT_EQ(countOf(one.out, "\"id\":\"C0-C1-5C-00-00-01\",\"name\":\"fridge\""), 9U) << one.err;
  EXPECT_EQ(runTool({"config", "check", file("[scan]\nsource = \"dmeo\"\n")}).err,
            at + ":2: --source: no such source: dmeo; did you mean demo?, for scan\n");
}

TEST_F(Config, IsShownWithTheOriginOfEachValue) {
  const std::string path = file(
      "time = \"utc\"\n[log.show]\nlast = 3\n[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"a\\\"b\"\n"
      "temperature = -0.4\n[[alarm]]\nname = \"gone\"\nsilent = \"10m\"\nexec = [\"/bin/sh\", \"-c\"]\n");
  const Ended shown = runTool({"config", "show", "--config", path});
  std::vector<std::string> words;
  for (const std::string& line : shown.lines())
    words.push_back(std::regex_replace(line, std::regex(" {2,}"), "  "));
  EXPECT_EQ(words, (std::vector<std::string>{"# " + path + ", from the command line",
                                             "time = \"utc\"  # line 1",
                                             "",
                                             "[log.show]",
                                             "last = 3  # line 3",
                                             "#container: the user's data folder for brenloft  # default",
                                             "#format: table  # default",
                                             "#follow: false  # default",
                                             "",
                                             "[beacon.\"C0-C1-5C-00-00-01\"]",
                                             "name = \"a\\\"b\"  # line 5",
                                             "temperature = -0.4  # line 6",
                                             "#humidity: 0  # default",
                                             "#exit-time: as --exit-time says  # default",
                                             "#ignore: false  # default",
                                             "",
                                             "[[alarm]]",
                                             "name = \"gone\"  # line 8",
                                             "silent = \"10m\"  # line 9",
                                             "exec = [\"/bin/sh\", \"-c\"]  # line 10",
                                             "#for: 0  # default",
                                             "#hysteresis: 0  # default",
                                             "#cooldown: 0  # default",
                                             "#severity: warning  # default",
                                             "#exec-timeout: 30s  # default"}));
  EXPECT_EQ(runTool({"config", "check", file(shown.out)}).status, 0) << "it is a settings file itself";
}

TEST_F(Config, CheckWarnsOfWhatTheFileAloneDoesNotTell) {
  const std::string alarm = "[[alarm]]\nname = \"gone\"\nsilent = \"10m\"\nexec = ";
  const std::string path = file(alarm + "[\"/nonexistent/notify\"]\n");
  EXPECT_EQ(
      runTool({"config", "check", path}).err,
      "brenloft: warning: alarm \"gone\": /nonexistent/notify cannot be run: No such file or directory\n");
  const std::string stranger = "beacon = \"C0-C1-5C-00-00-99\"\n";
  const Ended misspelt =
      runTool({"config", "check", file(alarm + "[\"/bin/sh\"]\n" + stranger), "-C", "/nonexistent"});
  EXPECT_EQ(misspelt.out, path + " is right: 0 beacons, 1 alarm, 1 warning\n");
  EXPECT_EQ(
      misspelt.err,
      "brenloft: warning: alarm \"gone\": no [beacon.\"C0-C1-5C-00-00-99\"] stands here, and the history in "
      "/nonexistent has never heard it\n");
  EXPECT_EQ(
      runTool({"config", "check", file("[scan]\nonly = \"known\"\n")}).err,
      "brenloft: warning: only = \"known\", for scan: no [beacon.\"…\"] stands here, so nothing is kept\n");
  EXPECT_EQ(runTool({"config", "check", path + "/none"}).status, 2);
  const Ended example = runTool({"config", "check", BRENLOFT_SOURCE_DIR "/packaging/brenloft.toml"});
  EXPECT_EQ(example.status, 0) << example.err;
  const std::string text = contentsOf(BRENLOFT_SOURCE_DIR "/packaging/brenloft.toml");
  EXPECT_EQ(
      runTool({"config", "check", file(std::regex_replace(text, std::regex("#(?=[a-z[])"), ""))}).err,
      "brenloft: warning: alarm \"fridge too warm\": /usr/local/bin/notify cannot be run: No such file or "
      "directory\n")
      << "its examples are right";
}

TEST_F(Config, OfTheExampleHasAnAlarmThatTheDemonstrationRaisesAndClears) {
  const std::string example = BRENLOFT_SOURCE_DIR "/examples/fridge.toml";
  const Ended scan =
      runTool({"scan", "--source", "demo", "--format", "readings", "--transitions", "--config", example});
  EXPECT_EQ(countOf(scan.out, "\"event\":\"alarm_raised\""), 1U) << scan.err;
  EXPECT_EQ(countOf(scan.out, "\"event\":\"alarm_cleared\""), 1U);
}

}  // namespace
}  // namespace brenloft_test
