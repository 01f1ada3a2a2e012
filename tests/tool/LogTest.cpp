#include <algorithm>
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;

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

// What a document goes to is what its name stands for, and the name stands for it afterwards.
TEST_F(LoggedDemo, ExportsToWhateverTheNameStandsFor) {
  const std::string document = log("export").out;
  const std::string fifo = folder_.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const Ended piped = runProgram({"sh", "-c", "\"$0\" log export -C \"$1\" -o \"$2\" & cat \"$2\"; wait $!",
                                  toolPath(), container(), fifo});
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(piped.out, document);
  EXPECT_TRUE(fs::is_fifo(fifo));

  writeFile(folder_.file("target"), "old");
  ASSERT_EQ(::chmod(folder_.file("target").c_str(), 0640), 0);
  fs::create_symlink("target", folder_.file("link"));
  fs::create_symlink(folder_.file("link"), folder_.file("second link"));
  fs::create_symlink("new", folder_.file("dangling"));
  for (const std::string name : {"second link", "dangling"}) {
    const Ended ended = log("export", {"--out", folder_.file(name)});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_TRUE(fs::is_symlink(folder_.file(name)));
    EXPECT_EQ(contentsOf(folder_.file(name)), document);
  }
  EXPECT_TRUE(fs::is_symlink(folder_.file("link")));
  EXPECT_EQ(fs::status(folder_.file("target")).permissions(), fs::perms(0640));
  const mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(fs::status(folder_.file("new")).permissions(), fs::perms(0666 & ~mask));
}

TEST_F(LoggedDemo, AFailedExportIsOneLineAndLeavesEverythingAsItWas) {
  const std::string folder = folder_.file("folder");
  fs::create_directory(folder);
  writeFile(folder + "/log.json", "old");
  writeFile(folder + "/log.json.part", "somebody else's");
  const auto fails = [&](const Ended& ended, const std::string& file) {
    EXPECT_EQ(ended.status, 1) << file;
    EXPECT_EQ(ended.err.find("brenloft: " + file + ": "), 0U) << ended.err;
    EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    EXPECT_EQ(contentsOf(folder + "/log.json"), "old");
    EXPECT_EQ(contentsOf(folder + "/log.json.part"), "somebody else's");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);
  };
  for (const std::string& file : {folder, folder + "/no/such", folder + "/log.json/below"})
    fails(log("export", {"--out", file}), file);
  // A disk that is full once it holds 32 KiB of the document.
  const std::string capture = folder_.file("capture");
  ASSERT_EQ(runTool({"simulate", "--out", capture, "--beacons", "200", "--seconds", "5"}).status, 0);
  ASSERT_EQ(runTool({"scan", "--source", "capture:" + capture, "--log", "-C", container(), "-q"}).status, 0);
  fails(runProgram({"sh", "-c", "ulimit -f 64; exec \"$0\" log export -C \"$1\" -o \"$2\"", toolPath(),
                    container(), folder + "/log.json"}),
        folder + "/log.json");
  if (::geteuid() != 0) {
    fs::permissions(folder, fs::perms(0555));
    fails(log("export", {"--out", folder + "/log.json"}), folder + "/log.json");
    fs::permissions(folder, fs::perms(0755));
  }
  EXPECT_EQ(log("export", {"--out", folder + "/log.json"}).status, 0);
  EXPECT_EQ(contentsOf(folder + "/log.json"), log("export").out);
  EXPECT_EQ(contentsOf(folder + "/log.json.part"), "somebody else's");
}

TEST(Log, FollowsRowsOfAStoreThatComesLaterUntilItIsStopped) {
  TemporaryFolder folder;
  const std::string container = folder.file("container");
  fs::create_directory(container);
  RunningTool follower({"log", "show", "--follow", "--container", container});
  follower.readLines(1);
  ASSERT_EQ(runTool({"scan", "--source", "demo", "--duration", "20", "--log", "--container", container, "-q"})
                .status,
            0);
  const std::string shown = runTool({"log", "show", "--container", container}).out;
  const auto lines = std::count(shown.begin(), shown.end(), '\n');
  EXPECT_GT(lines, 5);
  EXPECT_EQ(follower.readLines(lines), shown);
  follower.signal(SIGTERM);
  EXPECT_EQ(follower.wait(), 0);
}

TEST(Log, AFollowerEndsWhenNobodyReadsAnyMore) {
  TemporaryFolder folder;
  fs::create_directory(folder.file("container"));
  RunningTool follower({"log", "show", "--follow", "--container", folder.file("container")});
  follower.readLines(1);
  follower.closeOutput();
  EXPECT_EQ(follower.wait(), 0);
}

}  // namespace
}  // namespace brenloft_test
