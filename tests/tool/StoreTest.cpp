#include <algorithm>
#include <csignal>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

// A container with the log of some seconds of the demonstration.
class LoggedDemo : public testing::Test {
 protected:
  void SetUp() override {
    const Ended ended = runTool({"scan", "--source", "demo", "--duration", "20", "--log", "--container",
                                 container(), "--format", "jsonl", "-q"});
    ASSERT_EQ(ended.status, 0) << ended.err;
    scanned_ = ended.out;
  }

  Ended log(const std::string& action, std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"log", action, "--container", container()});
    return runTool(more);
  }
  Ended sqlite(const std::string& statement) const {
    return runProgram({"sqlite3", "-readonly", container() + "/ServiceModel.sqlite", statement});
  }
  std::string container() const { return folder_.file("container"); }

  TemporaryFolder folder_;
  std::string scanned_;
};

TEST_F(LoggedDemo, CountsShowsAndExportsTheRowsThatTheFileHolds) {
  if (!hasProgram("sqlite3") || !hasProgram("jq")) GTEST_SKIP() << "sqlite3 and jq are not installed";
  const std::string rows = sqlite("select count(*) from SensorLog").out;
  EXPECT_GT(std::stoi(rows), 5);
  EXPECT_EQ(log("count").out, rows);
  EXPECT_EQ(log("show", {"--format", "jsonl"}).lines().size(), std::stoul(rows));
  EXPECT_EQ(log("show", {"--format", "jsonl", "--last", "3"}).lines().size(), 3U);

  // One line per row with everything that the document tells, read by two parsers that are not this
  // project's.
  const Ended document = log("export");
  ASSERT_EQ(document.status, 0);
  const std::string fields =
      "[.beaconType,.beaconId,.uuid,.major,.minor,.rssi,.status,.statusUpdatedDate,.txPower,.emergency,"
      ".battery,.temperature,.humidity,.uniqueId,.tbd,.xAccel,.yAccel,.zAccel]";
  writeFile(folder_.file("document.json"), document.out);
  const Ended parsed =
      runProgram({"jq", "-r", ".[]|" + fields + "|map(tostring)|join(\"|\")", folder_.file("document.json")});
  const Ended stored = sqlite(
      "select beaconType,beaconId,uuid,major,minor,rssi,status,"
      "strftime('%Y%m%d%H%M%S',statusUpdatedDate,'unixepoch','localtime'),txPower,emergency,battery,"
      "temperature,humidity,uniqueId,tbd,xAccel,yAccel,zAccel from SensorLog order by rowid");
  EXPECT_EQ(parsed.status, 0) << parsed.err;
  EXPECT_EQ(parsed.out, stored.out);

  ASSERT_EQ(log("export", {"--out", folder_.file("copy.json")}).status, 0);
  EXPECT_EQ(contentsOf(folder_.file("copy.json")), document.out);
}

// Held against the lines of the same scan: a row for what becomes present, for each emergency of what is
// present (a new beacon's own row covers its first), and for what falls silent; none for the stop at the end.
constexpr const char* kExpectedRows = R"(
import json, sys
lines = [json.loads(line) for line in sys.stdin]
end = lines[-1]["time"]
status = {}
for line in lines:
    if line["event"] not in ("beacon", "emergency"):
        continue
    beacon = line["beacon"]
    key, now = beacon["uuid"], beacon["status"]
    if line["event"] == "emergency":
        if beacon["statusUpdatedDate"] != status.get((key, "new")):
            print(key, now)
    elif status.get(key) != now:
        if now == 2 and line["time"] == end:
            continue
        if key not in status:
            status[(key, "new")] = beacon["statusUpdatedDate"]
        status[key] = now
        print(key, now)
)";

TEST_F(LoggedDemo, HoldsARowForEachAppearanceEmergencyAndLossInTheirOrder) {
  if (!hasProgram("python3")) GTEST_SKIP() << "python3 is not installed";
  writeFile(folder_.file("lines"), scanned_);
  writeFile(folder_.file("expected.py"), kExpectedRows);
  const Ended expected =
      runProgram({"sh", "-c", "python3 " + folder_.file("expected.py") + " < " + folder_.file("lines")});
  ASSERT_EQ(expected.status, 0) << expected.err;
  EXPECT_GT(expected.lines().size(), 5U);
  EXPECT_EQ(sqlite("select uuid || ' ' || status from SensorLog order by rowid").out, expected.out);
}

TEST_F(LoggedDemo, DeletesOnlyWithYesWhereNobodyCanBeAsked) {
  EXPECT_EQ(log("delete").status, 2);
  EXPECT_NE(log("count").out, "0\n");
  EXPECT_EQ(log("delete", {"--yes"}).status, 0);
  EXPECT_EQ(log("count").out, "0\n");
  EXPECT_EQ(log("export").out, "[]\n");
}

TEST_F(LoggedDemo, FollowsNewRowsUntilItIsStopped) {
  const Ended followed =
      runToolUntil(1, {"log", "show", "--follow", "--format", "jsonl", "--container", container()}, SIGTERM);
  EXPECT_EQ(followed.status, 0);
  EXPECT_EQ(followed.out, log("show", {"--format", "jsonl"}).out);
}

TEST(Store, AnUnusableContainerIsOneLineAndFiveAndStaysAsItWas) {
  TemporaryFolder folder;
  writeFile(folder.file("file"), "no folder");
  ASSERT_EQ(::mkdir(folder.file("garbage").c_str(), 0755), 0);
  const std::string store = folder.file("garbage/ServiceModel.sqlite");
  const std::string octets =
      "this is no database, and longer than any header of one would be. " + std::string(200, 'x');
  writeFile(store, octets);
  for (const std::string container : {"file", "garbage"}) {
    const std::vector<std::vector<std::string>> commands{
        {"scan", "--source", "demo", "--log", "-q", "--container", folder.file(container)},
        {"log", "count", "--container", folder.file(container)},
        {"tag", "list", "--container", folder.file(container)}};
    for (const auto& command : commands) {
      const Ended ended = runTool(command);
      EXPECT_EQ(ended.status, 5) << testing::PrintToString(command) << ended.err;
      EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
      EXPECT_EQ(ended.out, "");
    }
  }
  EXPECT_EQ(contentsOf(store), octets);
  EXPECT_EQ(contentsOf(folder.file("file")), "no folder");
}

TEST(Tags, ComeBackAsTheyWereInALaterProcess) {
  TemporaryFolder folder;
  const std::string container = folder.file("c");
  const std::string octets("\0\xFF\nlast", 7);
  writeFile(folder.file("tag"), octets);
  const auto tag = [&](std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), "tag");
    arguments.insert(arguments.end(), {"--container", container});
    return runTool(arguments, input);
  };
  EXPECT_EQ(tag({"set", "door", "--file", folder.file("tag")}).status, 0);
  EXPECT_EQ(tag({"set", "door"}, "second").status, 0);
  EXPECT_EQ(tag({"get", "door"}).out, octets);
  EXPECT_EQ(tag({"list", "--format", "jsonl"}).out,
            "{\"key\":\"door\",\"data\":\"00ff0a6c617374\"}\n{\"key\":\"door\",\"data\":\"7365636f6e64\"}\n");

  const Ended absent = tag({"get", "window"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err, "brenloft: no tag under the key window\n");
  EXPECT_EQ(tag({"set", "door", "--file", folder.file("absent")}).status, 1);

  EXPECT_EQ(tag({"clear", "--yes"}).status, 0);
  EXPECT_EQ(tag({"list", "--format", "jsonl"}).out, "");
}

TEST(Sources, ListsWhatNeedsNoRadioAndSaysWhatAutoMeans) {
  const Ended ended = runTool({"sources"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_NE(ended.out.find("\ndemo "), std::string::npos);
  EXPECT_NE(ended.err.find("auto: "), std::string::npos);
}

}  // namespace
}  // namespace brenloft_test
