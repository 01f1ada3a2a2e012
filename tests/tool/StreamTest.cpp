// Captures that come through a pipe, and what stands on a terminal.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/PseudoTerminals.h"
#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;

// A named pipe that stays open for writing, with these octets in it.
class OpenPipe {
 public:
  OpenPipe(std::string path, const std::string& octets) : path_(std::move(path)) {
    EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    descriptor_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    EXPECT_EQ(::write(descriptor_, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
  }
  ~OpenPipe() { ::close(descriptor_); }
  OpenPipe(const OpenPipe&) = delete;
  OpenPipe& operator=(const OpenPipe&) = delete;

  std::string source() const { return "capture:" + path_; }

 private:
  std::string path_;
  int descriptor_ = -1;
};

TEST(Stream, ShowsWhatComesThroughAPipeAtOnceAndStopsInOrder) {
  TemporaryFolder folder;
  const std::string file = folder.file("c.btsnoop");
  ASSERT_EQ(runTool({"simulate", "--out", file}).status, 0);
  // Ends inside a record, of which a stop makes no fault.
  const std::string octets = contentsOf(file).substr(0, contentsOf(file).size() - 3);
  for (const int signal : {SIGINT, SIGTERM}) {
    std::vector<std::string> hear{"hear", "--source", "capture:" + file, "--format", "jsonl"};
    std::vector<std::string> all = runTool(hear).lines();
    all.pop_back();
    const OpenPipe heardPipe(folder.file("hear" + std::to_string(signal)), octets);
    hear[2] = heardPipe.source();
    const Ended heard = runToolUntil(static_cast<std::ptrdiff_t>(all.size()), hear, signal);
    EXPECT_EQ(heard.status, 0);
    EXPECT_EQ(heard.err, "");
    EXPECT_EQ(heard.lines(), all);

    const OpenPipe scannedPipe(folder.file("scan" + std::to_string(signal)), octets);
    const Ended scanned =
        runToolUntil(100, {"scan", "--source", scannedPipe.source(), "--format", "jsonl", "-q"}, signal);
    EXPECT_EQ(scanned.status, 0);
    EXPECT_EQ(scanned.err, "");
    EXPECT_EQ(valueOf(scanned.lines().back(), "status"), "2");
  }
}

TEST(Stream, APipeIsHeardUntilItsWriterHasComeAndGone) {
  TemporaryFolder folder;
  const std::string file = folder.file("c.btsnoop");
  ASSERT_EQ(runTool({"simulate", "--out", file}).status, 0);
  // The writer waits for the tool, which finds nobody there.
  const Ended ended = runProgram(
      {"sh", "-c",
       "mkfifo \"$1\"; (exec 3>\"$1\"; cat \"$2\" >&3) & exec \"$0\" hear -F jsonl -s capture:\"$1\"",
       toolPath(), folder.file("pipe"), file});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(ended.out, runTool({"hear", "-F", "jsonl", "-s", "capture:" + file}).out);
}

TEST(Stream, ASignalEndsTheWaitForAPipeThatBringsNothing) {
  TemporaryFolder folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string command : {"hear", "scan -q"})
    for (const std::string pace : {"", "?paced"}) {
      // The pipe opens for writing once the tool has opened it for reading.
      const Ended ended = runProgram({"bash", "-c",
                                      std::string(BRENLOFT_TOOL) + " " + command +
                                          " --format jsonl --source 'capture:" + pipe + pace + "' & exec 3>" +
                                          pipe + "; kill -TERM $!; wait $!"});
      EXPECT_EQ(ended.status, 0) << command << pace;
      EXPECT_EQ(ended.out + ended.err, "") << command << pace;
    }
}

TEST(Stream, ASignalEndsTheWaitForAReaderOfTheRecording) {
  TemporaryFolder folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string command : {"hear --source demo --record ", "scan -q --source demo --record ",
                                    "hear --source demo?paced --record ", "simulate --out "}) {
    // The signal comes once the tool keeps it from ending the process.
    const Ended ended =
        runProgram({"bash", "-c",
                    "(until grep -q 'SigBlk:.*4003' /proc/$$/status; do :; done; kill -TERM $$) & exec " +
                        toolPath() + " " + command + pipe + " >/dev/null"});
    EXPECT_EQ(ended.status, 0) << command;
    EXPECT_EQ(ended.err, "") << command;
  }
}

TEST(Stream, TheProgressBarKeepsOutOfDataAndDiagnostics) {
  if (!support::hasPseudoTerminals()) GTEST_SKIP() << support::kNoPseudoTerminals;
  if (!hasProgram("script")) GTEST_SKIP() << "script is not installed";
  TemporaryFolder folder;
  const std::string file = folder.file("long.btsnoop");
  ASSERT_EQ(runTool({"simulate", "--out", file, "--beacons", "2000", "--seconds", "40"}).status, 0);
  ASSERT_GT(std::filesystem::file_size(file), 4'300'000U);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 3);
  const std::string hear = std::string(BRENLOFT_TOOL) + " hear --format jsonl --source capture:" + file;

  const std::string mixed = runOnTerminal(hear + " --count 3").out;
  EXPECT_EQ(std::count(mixed.begin(), mixed.end(), '\n'), 3);
  EXPECT_EQ(mixed.find('%'), std::string::npos) << mixed;

  const std::string apart = runOnTerminal(hear + " > /dev/null").out;
  EXPECT_NE(apart.find("]  50 %"), std::string::npos);
  EXPECT_NE(apart.find("%\r\x1b[K" + file + ": record "), std::string::npos)
      << apart.substr(apart.size() - 300);
}

TEST(Reload, HasTheNewNamesAndFilesAndKeepsWhatWasRight) {
  TemporaryFolder folder;
  const std::string settings = folder.file("brenloft.toml");
  const auto setName = [&](const std::string& name) {
    writeFile(settings, "[beacon.\"C0-C1-5C-00-00-02\"]\nname = \"" + name + "\"\n");
  };
  setName("before");
  RunningTool tool({"scan", "-s", "demo?paced", "--config", settings, "--only", "known", "-F", "readings",
                    "--out", "influx:" + folder.file("out")});
  std::ptrdiff_t lines = 0;
  const auto awaitName = [&](const std::string& name) {
    for (const std::ptrdiff_t last = lines + 20; lines < last;)
      if (tool.readLines(++lines).find('"' + name + '"') != std::string::npos) return true;
    return false;
  };
  ASSERT_TRUE(awaitName("before"));
  fs::rename(folder.file("out"), folder.file("out.1"));
  setName("after");
  tool.signal(SIGHUP);
  ASSERT_TRUE(awaitName("after"));
  writeFile(settings, "formta = 1\n");
  tool.signal(SIGHUP);
  lines += 2;
  tool.readLines(lines);
  tool.signal(SIGINT);
  const Ended ended = tool.readToEnd();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(valueOf(ended.lines().back(), "name"), "\"after\"");
  EXPECT_EQ(
      ended.err,
      "settings read again: 1 beacon, 0 alarms\n" + settings +
          ":1: no command has the option formta; did you mean format?; the settings stay as they were\n");
  EXPECT_NE(contentsOf(folder.file("out.1")).find("name=before"), std::string::npos);
  EXPECT_NE(contentsOf(folder.file("out")).find("name=after"), std::string::npos);
}

}  // namespace
}  // namespace brenloft_test
