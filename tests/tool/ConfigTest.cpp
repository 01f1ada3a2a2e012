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
  EXPECT_EQ(checked.err,
            "brenloft: " + path + ":2: coutn is no option of scan; did you mean count?\nbrenloft: " + path +
                ":3: --uuid: 'FFF' is no UUID of 4, 8 or 32 digits, for scan\nbrenloft: " + path +
                ":5: --last: '0' is no whole number above 0, for log show\n");
  const Ended scan = runTool({"scan", "--config", path, "--source", "demo"});
  EXPECT_EQ(scan.status, 2);
  EXPECT_EQ(scan.out, "");
  EXPECT_EQ(scan.err,
            "brenloft: " + path +
                ":2: coutn is no option of scan; did you mean count? (and 2 more; see 'brenloft config "
                "check')\n");
  EXPECT_EQ(runTool({"scan", "--help", "--config", path}).status, 0);
}

TEST_F(Config, CheckLooksForTheProgramsToo) {
  const std::string alarm = "[[alarm]]\nname = \"gone\"\nsilent = \"10m\"\nexec = ";
  const std::string path = file(alarm + "[\"/nonexistent/notify\"]\n");
  EXPECT_EQ(runTool({"config", "check", path}).err,
            "brenloft: alarm \"gone\": /nonexistent/notify cannot be run: No such file or directory\n");
  EXPECT_EQ(runTool({"config", "check", file(alarm + "[\"/bin/sh\"]\n")}).out,
            path + " is right: 0 beacons, 1 alarm\n");
  EXPECT_EQ(runTool({"config", "check", path + "/none"}).status, 2);
  const Ended example = runTool({"config", "check", BRENLOFT_SOURCE_DIR "/packaging/brenloft.toml"});
  EXPECT_EQ(example.status, 0) << example.err;
  const std::string text = contentsOf(BRENLOFT_SOURCE_DIR "/packaging/brenloft.toml");
  EXPECT_EQ(runTool({"config", "check", file(std::regex_replace(text, std::regex("#(?=[a-z[])"), ""))}).err,
            "brenloft: alarm \"fridge too warm\": /usr/local/bin/notify cannot be run: No such file or "
            "directory\n")
      << "its examples are right";
}

}  // namespace
}  // namespace brenloft_test
