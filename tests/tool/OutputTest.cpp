#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>

#include <gtest/gtest.h>

#include "platform/dispatch/RunLoop.h"
#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;
using platform::RunLoop;

TEST(Output, AClosedPipeEndsTheToolQuietly) {
  TemporaryFolder folder;
  const std::string capture = folder.file("c.btsnoop");
  ASSERT_EQ(runTool({"simulate", "--out", capture, "--beacons", "50", "--seconds", "60"}).status, 0);
  for (const std::string command : {"hear", "scan -q"}) {
    const Ended ended = runProgram({"bash", "-c",
                                    toolPath() + " " + command + " --source capture:" + capture +
                                        " --format jsonl | head -n 1; exit ${PIPESTATUS[0]}"});
    EXPECT_EQ(ended.status, 0) << command;
    EXPECT_EQ(ended.err, "") << command;
    EXPECT_EQ(ended.lines().size(), 1U) << command;
  }
}

TEST(Output, OneSignalEndsTheToolBesideAReaderThatStalls) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"scan", "--source", "demo", "--format", "jsonl", "-q"},
        {"hear", "--source", "demo", "--format", "jsonl"}}) {
    RunningTool tool(arguments);
    tool.fillOutput();
    tool.signal(SIGTERM);
    EXPECT_EQ(tool.end(), 0) << testing::PrintToString(arguments);
  }
}

TEST(Stop, OvertakesWhatWaitsOnTheMainQueue) {
  for (const bool isFromElsewhere : {false, true}) {
    RunLoop loop(RunLoop::Clock::realTime);
    const auto main = loop.dispatch()->mainQueue();
    std::promise<void> stopped;
    bool hasRun = false;
    main->async([&] {
      if (!isFromElsewhere) return loop.stop();
      loop.callAfter(std::chrono::microseconds(0), [&] { loop.stop(), stopped.set_value(); });
      stopped.get_future().wait();
    });
    main->async([&] { hasRun = true; });
    loop.run();
    EXPECT_FALSE(hasRun) << isFromElsewhere;
  }
}

// A pipe of packets keeps apart what was written apart.
TEST(Output, AnAdvertisementIsOneWrite) {
  if (!hasProgram("python3")) GTEST_SKIP() << "python3 is missing";
  const Ended ended = runProgram({"python3", "-c", R"(
import os, subprocess, sys
reading, writing = os.pipe2(os.O_DIRECT)
tool = subprocess.Popen([sys.argv[1], 'scan', '-s', 'demo', '-q', '-F', 'jsonl'], stdout=writing)
os.close(writing)
writes = list(iter(lambda: os.read(reading, 65536), b''))
heard = [write for write in writes if write.startswith(b'{"event":"bytes"')]
print(len(heard) > 0, all(write.count(b'\n') == 2 for write in heard), max(w.count(b'\n') for w in writes))
)",
                                  toolPath()});
  EXPECT_EQ(ended.out, "True True 2\n") << ended.err;
}

TEST(Output, ASearchThatHearsNothingEndsWhenNobodyReadsAnyMore) {
  RunningTool tool({"scan", "--source", "demo?paced", "--uuid", "1234", "--format", "csv", "-q"});
  tool.readLines(1);
  tool.closeOutput();
  EXPECT_EQ(tool.end(), 0);
}

TEST(Output, ThatFailsLeavesTheRecordingWhole) {
  TemporaryFolder folder;
  for (const std::string command : {"scan", "hear"}) {
    const std::string record = folder.file(command);
    const Ended ended = runProgram({"sh", "-c", "exec \"$0\" \"$@\" >/dev/full", toolPath(), command,
                                    "--source", "demo", "--record", record});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("brenloft: standard output: "), std::string::npos) << ended.err;
    const Ended heard = runTool({"hear", "--source", "capture:" + record, "--format", "jsonl"});
    EXPECT_EQ(heard.status, 0) << heard.err;
    EXPECT_GT(heard.lines().size(), 0U) << command;
  }
}

TEST(Recording, NeverReplacesWhatIsBeingHeardNorAnEarlierOneInVain) {
  TemporaryFolder folder;
  const std::string capture = folder.file("capture");
  ASSERT_EQ(runTool({"simulate", "--out", capture, "--beacons", "200", "--seconds", "30"}).status, 0);
  const std::string octets = contentsOf(capture);
  ASSERT_GT(octets.size(), 300'000U) << "more than what is read ahead";
  fs::create_symlink(capture, folder.file("link"));
  for (const std::string command : {"scan", "hear"}) {
    for (const std::string& source : {"capture:" + capture, "capture:" + capture + "?paced"}) {
      const Ended ended = runTool({command, "--source", source, "--record", folder.file("link")});
      EXPECT_EQ(ended.status, 2) << command << source;
      EXPECT_NE(ended.err.find("--record would overwrite the capture that is read: " + folder.file("link")),
                std::string::npos)
          << ended.err;
      EXPECT_EQ(contentsOf(capture), octets) << command << source;
    }
  }
  writeFile(folder.file("file"), "no folder");
  EXPECT_EQ(
      runTool({"scan", "--source", "demo", "--log", "-C", folder.file("file"), "--record", capture, "-q"})
          .status,
      5);
  EXPECT_EQ(contentsOf(capture), octets);
}

}  // namespace
}  // namespace brenloft_test
