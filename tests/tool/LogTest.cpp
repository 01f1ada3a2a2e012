#include <algorithm>
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/SensorLog.h"
#include "tests/tool/RunTool.h"
#include "tools/brenloft/LogLimits.h"
#include "tools/brenloft/Store.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;

using namespace brenloft;

// A container with the log of some seconds of the demonstration.
class LoggedDemo : public testing::Test {
 protected:
  void SetUp() override {
    const Ended ended =
        runTool({"scan", "--source", "demo", "--duration", "20", "--log", "--container", container(), "-q"});
    ASSERT_EQ(ended.status, 0) << ended.err;
  }

  Ended log(const std::string& action, std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"log", action, "--container", container()});
    return runTool(more);
  }
  std::string container() const { return folder_.file("container"); }

  TemporaryFolder folder_;
};

TEST_F(LoggedDemo, CountsShowsExportsAndDeletesTheRowsThatTheFileHolds) {
  if (!hasProgram("sqlite3")) GTEST_SKIP() << "sqlite3 is not installed";
  const std::string rows = runProgram({"sqlite3", "-readonly", container() + "/ServiceModel.sqlite",
                                       "select count(*) from SensorLog"})
                               .out;
  EXPECT_GT(std::stoi(rows), 5);
  EXPECT_EQ(log("count").out, rows);
  EXPECT_EQ(log("show", {"--format", "jsonl"}).lines().size(), std::stoul(rows));
  EXPECT_EQ(log("show", {"--format", "jsonl", "--last", "3"}).lines().size(), 3U);

  const std::string document = log("export").out;
  EXPECT_EQ(std::count(document.begin(), document.end(), '{'), std::stoi(rows));
  ASSERT_EQ(log("export", {"--out", folder_.file("copy.json")}).status, 0);
  EXPECT_EQ(contentsOf(folder_.file("copy.json")), document);

  // The demonstration begins at 1767225600.
  EXPECT_EQ(log("count", {"--since", "@1767225601", "--until", "2026-01-01T00:00:05Z"}).out, "2\n");
  EXPECT_EQ(log("show", {"--format", "jsonl", "--until", "@1767225601"}).lines().size(), 5U);
  const std::string late = log("export", {"--since", "@1767225601"}).out;
  EXPECT_EQ(std::count(late.begin(), late.end(), '{'), std::stoi(rows) - 5);
  EXPECT_EQ(log("check").err, container() + "/ServiceModel.sqlite is sound\n");
  fs::create_directory(folder_.file("copy"));
  const std::string copy = folder_.file("copy/ServiceModel.sqlite");
  EXPECT_EQ(log("backup", {copy}).status, 0);
  EXPECT_EQ(runTool({"log", "export", "-C", folder_.file("copy")}).out, document);
  std::string octets = contentsOf(copy);
  writeFile(copy, octets.replace(3 * octets.size() / 4, 2000, 2000, '\x55'));
  EXPECT_EQ(runTool({"log", "check", "-C", folder_.file("copy")}).status, 5);
  EXPECT_EQ(log("delete", {"--before", "@1767225601", "--yes"}).err, "5 rows deleted\n");
  EXPECT_EQ(log("export").out, late);

  const std::string left = std::to_string(std::stoi(rows) - 5) + "\n";
  EXPECT_EQ(log("delete").status, 2) << "nobody can be asked";
  EXPECT_EQ(log("count").out, left);
  EXPECT_EQ(log("delete", {"--yes"}).status, 0);
  EXPECT_EQ(log("count").out, "0\n");
  EXPECT_EQ(log("export").out, "[]\n");
}

TEST_F(LoggedDemo, KeepsNoMoreThanASearchIsToldTo) {
  const auto rowsAfter = [&](const std::vector<std::string>& bounds) {
    std::vector<std::string> arguments{"scan", "-s", "demo", "-t", "20", "--log", "-C", container(), "-q"};
    arguments.insert(arguments.end(), bounds.begin(), bounds.end());
    EXPECT_EQ(runTool(arguments).status, 0);
    return std::stoul(log("count").out);
  };
  const auto rows = std::stoul(log("count").out);
  EXPECT_EQ(rowsAfter({"--log-keep", "1h", "--log-max", "1M"}), 2 * rows);
  EXPECT_LT(rowsAfter({"--log-keep", "5s"}), rows);
  // Larger than that: the oldest rows go, until there is room for new ones.
  ASSERT_EQ(runTool({"simulate", "-o", folder_.file("many"), "--beacons", "9000", "--seconds", "3"}).status,
            0);
  const std::vector<std::string> many{
      "scan",      "-s", "capture:" + folder_.file("many"), "--log", "-C", container(), "-q", "-F", "csv",
      "--log-max", "1M"};
  EXPECT_EQ(runTool(many).status, 0);
  EXPECT_LT(fs::file_size(container() + "/ServiceModel.sqlite"), 1'048'576U);
  EXPECT_GT(std::stoul(log("count").out), 5000U);
}

// A log that the test itself fills.
class LimitedLog : public testing::Test {
 protected:
  LimitedLog() { installForStore(folder_.file("container")); }

  static constexpr platform::Date kNow{std::chrono::hours(500'000)};

  static void add(int rows, platform::Date date) {
    for (int i = 0; i < rows; ++i) {
      const auto row = BRLCoreDataManager::Class::insertNewObjectForEntityForName("SensorLog");
      auto& logged = dynamic_cast<SensorLog&>(*row);
      logged.setStatusUpdatedDate(date);
      logged.setTbd(std::string(200, 'x'));
    }
    BRLCoreDataManager::Class::sharedManager()->saveContext();
  }
  static uint64_t rowsAfter(LogLimits& limits) {
    while (limits.step(kNow)) {
    }
    return rows();
  }
  static uint64_t rows() {
    const auto request = platform::NSFetchRequest::fetchRequestWithEntityName("SensorLog");
    return *BRLCoreDataManager::Class::sharedManagedObjectContext()->countForFetchRequest_error(request);
  }

  TemporaryFolder folder_;
};

// However much is written between two looks, and however large the file ever was.
TEST_F(LimitedLog, IsNoLargerThanItMayBeAfterAnyLook) {
  LogLimits limits({.mostOctets = 1'048'576});
  for (const int written : {20'000, 10'000, 16'000}) {
    add(written, kNow);
    const uint64_t rows = rowsAfter(limits);
    EXPECT_LT(rows, 5000U);
    EXPECT_GT(rows, 3000U);
  }
}

TEST_F(LimitedLog, LosesNoMoreByTwoWhoLimitItThanByOne) {
  add(20'000, kNow);
  LogLimits one({.mostOctets = 2'097'152});
  LogLimits other = one;
  for (bool isMore = true; isMore;) {
    isMore = one.step(kNow);
    if (other.step(kNow)) isMore = true;
  }
  EXPECT_GT(rows(), 7000U);
}

// What a wrong clock dated goes with the next good row, and with that one only.
TEST_F(LimitedLog, LosesOldRowsBehindAnyNumberOfAWrongClock) {
  const platform::Date ahead = kNow + std::chrono::hours(2);
  const platform::Date old = kNow - std::chrono::hours(2);
  LogLimits limits({.longest = std::chrono::hours(1)});
  add(300, old);
  add(12'000, ahead);
  EXPECT_EQ(rowsAfter(limits), 12'000U) << "no good row follows";
  add(500, old);
  add(1700, ahead);
  add(1, kNow);
  add(10, old);
  EXPECT_EQ(rowsAfter(limits), 1711U);
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
  ASSERT_EQ(::chmod(folder_.file("target").c_str(), 04640), 0);
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

// The store is a database; its log and the settings, there or not, belong to it. By whatever name.
TEST_F(LoggedDemo, NoCommandOverwritesAFileOfAContainer) {
  const std::string store = container() + "/ServiceModel.sqlite";
  fs::create_symlink("container", folder_.file("folder"));
  fs::create_symlink("folder/ServiceModel.sqlite", folder_.file("link"));
  fs::create_hard_link(store, folder_.file("second name"));
  fs::create_hard_link(container() + "/settings.json", folder_.file("settings"));
  const auto before = log("export").out;
  const auto settings = contentsOf(container() + "/settings.json");
  const std::vector<std::vector<std::string>> commands{
      {"log", "export", "-C", container(), "--out"},
      {"scan", "--source", "demo", "--log", "-q", "-C", container(), "--record"},
      {"simulate", "--seconds", "1", "--out"},
      {"hear", "--source", "demo", "--record"}};
  for (auto command : commands) {
    command.emplace_back();
    std::vector<std::string> files{store, store + "-wal", folder_.file("folder/settings.json"),
                                   folder_.file("link"), folder_.file("second name")};
    // Only who is given the container can know.
    if (std::find(command.begin(), command.end(), "-C") != command.end())
      files.push_back(folder_.file("settings"));
    for (const auto& file : files) {
      command.back() = file;
      const Ended ended = runTool(command);
      EXPECT_EQ(ended.status, 2) << testing::PrintToString(command);
      EXPECT_EQ(ended.lines().size(), 0U) << ended.out;
      EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    }
  }
  EXPECT_EQ(runTool({"log", "export", "-C", container(), "--out", container() + "/settings.jsonl"}).status, 0)
      << "what is only named alike is nobody's";
  EXPECT_EQ(log("export").out, before);
  EXPECT_EQ(contentsOf(container() + "/settings.json"), settings);
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

TEST(Log, FollowsRowsOfAStoreThatComesLaterUntilItIsStoppedOrNobodyReads) {
  TemporaryFolder folder;
  const std::string container = folder.file("container");
  fs::create_directory(container);
  const std::vector<std::string> follow{"log", "show", "--follow", "--container", container};
  RunningTool unread(follow);
  unread.readLines(1);
  unread.closeOutput();
  EXPECT_EQ(unread.end(), 0);

  RunningTool follower(follow);
  follower.readLines(1);
  ASSERT_EQ(runTool({"scan", "--source", "demo", "--duration", "20", "--log", "--container", container, "-q"})
                .status,
            0);
  const std::string shown = runTool({"log", "show", "--container", container}).out;
  const auto lines = std::count(shown.begin(), shown.end(), '\n');
  EXPECT_GT(lines, 5);
  EXPECT_EQ(follower.readLines(lines), shown);
  follower.signal(SIGTERM);
  EXPECT_EQ(follower.end(), 0);
}

}  // namespace
}  // namespace brenloft_test
