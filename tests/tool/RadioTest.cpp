#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "platform/foundation/Hex.h"
#include "tests/support/H4Server.h"
#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

using support::ControllerModel;
using support::H4Server;

const platform::Data kSensor = ControllerModel::legacyReport(
    1, platform::octetsFromHex("0201060303f0ff17ff880901020304050607080910111213141516171819ff").value());

TEST(Radio, ItsStatesAreNotAmongTheEventsThatAreCounted) {
  H4Server server;
  std::atomic<bool> isOver = false;
  std::thread sensor([&] {
    if (server.waitForScan()) {
      for (; !isOver; std::this_thread::sleep_for(std::chrono::milliseconds(20))) server.sendSome(kSensor);
    }
  });
  const Ended ended =
      runTool({"scan", "-q", "--source", server.address(), "--count", "1", "--format", "jsonl"});
  isOver = true;
  sensor.join();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(countOf(ended.out, "\"event\":\"radio\""), 1U) << ended.out;
  EXPECT_EQ(countOf(ended.out, "\"event\":\"bytes\""), 1U) << ended.out;
  EXPECT_EQ(ended.lines().size(), 2U) << ended.out;
}

// More than waits for a reader, in the pipe, in the backlog and in the socket together.
TEST(Radio, IsReadOnBesideAReaderThatStalls) {
  constexpr uint16_t kSenders = 60'000;
  H4Server server;
  RunningTool tool({"scan", "--source", server.address(), "--format", "jsonl"});
  ASSERT_TRUE(server.waitForScan());
  const platform::Data data =
      platform::octetsFromHex("0303f0ff17ff880901020304050607080910111213141516171819ff").value();
  uint16_t taken = 0;
  while (taken < kSenders && server.sendSome(ControllerModel::legacyReport(taken, data))) ++taken;
  EXPECT_EQ(taken, kSenders);
  server.drop();
  EXPECT_TRUE(server.waitForHost()) << "the radio's state is told, and the radio opened anew";
  tool.signal(SIGINT);
  const Ended ended = tool.readToEnd();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(countOf(ended.err, "reports come faster than they are taken"), 1U) << ended.err;
}

TEST(Radio, WhyItFailsIsSaidOnce) {
  H4Server server;
  std::thread sensor([&] {
    for (int connection = 0; connection < 2; ++connection) {
      if (!server.waitForScan()) return;
      server.send(kSensor);
      if (connection == 0) server.drop();
    }
  });
  const Ended ended = runTool({"hear", "--source", server.address(), "--count", "2", "-F", "jsonl"});
  sensor.join();
  EXPECT_EQ(ended.status, 0);
  const std::string told = "radio: resetting (";
  ASSERT_EQ(countOf(ended.err, told), 1U) << ended.err;
  const auto begin = ended.err.find(told) + told.size();
  EXPECT_EQ(countOf(ended.err, ended.err.substr(begin, ended.err.find(')', begin) - begin)), 1U) << ended.err;
}

TEST(Radio, WhatCanNeverBeOneEndsTheCommand) {
  TemporaryFolder folder;
  const std::string file = folder.file("file");
  writeFile(file, "");
  const std::pair<std::string, int> cases[] = {{"h4:" + file, 3},
                                               {"h4:/dev/null", 3},
                                               {"h4:unix:" + file, 3},
                                               {"h4:unix:/nonexistent/socket", 3},
                                               {"h4:unix:/" + std::string(107, 'a'), 2}};
  for (const auto& [source, status] : cases) {
    const Ended ended = runTool({"hear", "--source", source});
    EXPECT_EQ(ended.status, status) << source << ": " << ended.err;
    EXPECT_EQ(countOf(ended.err, "'--source demo' works without"), status == 3 ? 1U : 0U) << ended.err;
    EXPECT_EQ(countOf(ended.err, "\n"), 1U) << ended.err;
  }
}

}  // namespace
}  // namespace brenloft_test
