#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;

std::string simulated(const TemporaryFolder& folder, const std::vector<std::string>& more = {}) {
  const std::string capture = folder.file("simulated.btsnoop");
  std::vector<std::string> arguments{"simulate", "--out", capture, "--seconds", "30", "--seed", "7"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Ended ended = runTool(arguments);
  EXPECT_EQ(ended.status, 0) << ended.err;
  return "capture:" + capture;
}

TEST(Simulate, WritesTheSameWorldForTheSameSeed) {
  TemporaryFolder folder;
  const std::vector<std::string> common{"--beacons", "3", "--ibeacons", "2", "--seconds", "20"};
  const auto write = [&](const std::string& name, const std::string& seed) {
    std::vector<std::string> arguments{"simulate", "--out", folder.file(name), "--seed", seed};
    arguments.insert(arguments.end(), common.begin(), common.end());
    EXPECT_EQ(runTool(arguments).status, 0);
    return contentsOf(folder.file(name));
  };
  const std::string first = write("a", "1");
  EXPECT_GT(first.size(), 1000U);
  EXPECT_EQ(first, write("b", "1"));
  EXPECT_NE(first, write("c", "2"));

  const Ended ended = runTool({"simulate", "--out", folder.file("no/such/folder")});
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("no/such/folder"), std::string::npos);
}

TEST(Hear, PrintsEveryReportOnceAndRecordsItForAnEqualReplay) {
  TemporaryFolder folder;
  const std::string source = simulated(folder, {"--ibeacons", "3"});
  const std::string copy = folder.file("copy.btsnoop");
  const Ended heard = runTool({"hear", "--source", source, "--format", "jsonl", "--record", copy});
  ASSERT_EQ(heard.status, 0) << heard.err;
  ASSERT_GT(heard.lines().size(), 100U);
  EXPECT_EQ(runTool({"hear", "--source", "capture:" + copy, "--format", "jsonl"}).out, heard.out);

  const Ended merged = runTool({"hear", "--source", source, "--format", "jsonl", "--merged"});
  EXPECT_EQ(merged.lines().size(), heard.lines().size());
  EXPECT_NE(merged.out, heard.out);

  const Ended two = runTool({"hear", "--source", source, "--format", "jsonl", "--count", "2"});
  EXPECT_EQ(two.out, heard.lines()[0] + "\n" + heard.lines()[1] + "\n");
}

TEST(Hear, NeverRecordsOverTheCaptureThatIsRead) {
  TemporaryFolder folder;
  // More than what is read ahead.
  const std::string source = simulated(folder, {"--beacons", "200"});
  const std::string octets = contentsOf(source.substr(8));
  ASSERT_GT(octets.size(), 300'000U);
  std::filesystem::create_symlink(source.substr(8), folder.file("link"));
  for (const std::string command : {"hear", "scan"})
    for (const std::string pace : {"", "?paced"}) {
      const Ended ended = runTool({command, "--source", source + pace, "--record", folder.file("link")});
      EXPECT_EQ(ended.status, 2) << command << pace;
      EXPECT_NE(ended.err.find("--record would overwrite the capture that is read: " + folder.file("link")),
                std::string::npos)
          << ended.err;
      EXPECT_EQ(contentsOf(source.substr(8)), octets) << command << pace;
    }
}

TEST(Hear, SaysInOneLineWhatIsWrongWithAFile) {
  TemporaryFolder folder;
  const std::string whole = simulated(folder).substr(8);
  const std::string octets = contentsOf(whole);
  writeFile(folder.file("cut"), octets.substr(0, octets.size() - 3));
  const Ended cut = runTool({"hear", "--source", "capture:" + folder.file("cut"), "-F", "jsonl"});
  const Ended complete = runTool({"hear", "--source", "capture:" + whole, "-F", "jsonl"});
  EXPECT_EQ(cut.status, 0);
  EXPECT_EQ(cut.lines().size(), complete.lines().size() - 1);
  EXPECT_NE(cut.err.find(folder.file("cut") + ": record "), std::string::npos) << cut.err;

  writeFile(folder.file("text"), "this is no capture\n");
  for (const std::string name : {"text", "absent"}) {
    const Ended ended = runTool({"hear", "--source", "capture:" + folder.file(name)});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find(folder.file(name)), std::string::npos) << ended.err;
  }
}

TEST(Scan, GivesTheSameLinesForEveryReplay) {
  TemporaryFolder folder;
  const std::string source = simulated(folder);
  const std::vector<std::string> arguments{"scan", "--source", source, "--format", "jsonl", "-q"};
  const Ended first = runTool(arguments);
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_GT(first.lines().size(), 100U);
  EXPECT_EQ(runTool(arguments).out, first.out);
  EXPECT_EQ(valueOf(first.lines()[0], "event"), "\"bytes\"");
  EXPECT_EQ(valueOf(first.lines()[1], "event"), "\"beacon\"");
}

TEST(Scan, LaysOutEachLineAsPromised) {
  TemporaryFolder folder;
  const std::string line =
      runTool({"scan", "--source", simulated(folder), "--format", "jsonl", "-q", "-n", "2"}).lines().back();
  std::size_t at = 0;
  for (const char* key :
       {"event",    "time", "beacon",  "beaconType",        "beaconId", "uuid",        "major",
        "minor",    "rssi", "txPower", "emergency",         "battery",  "temperature", "humidity",
        "uniqueId", "tbd",  "status",  "statusUpdatedDate", "xAccel",   "yAccel",      "zAccel"}) {
    const std::size_t found = line.find('"' + std::string(key) + "\":");
    ASSERT_NE(found, std::string::npos) << key;
    EXPECT_GE(found, at) << key;
    at = found;
  }
  const std::string time = valueOf(line, "time");
  EXPECT_EQ(time.size() - time.find('.') - 1, 6U);
  EXPECT_EQ(valueOf(line, "statusUpdatedDate"), time);
}

TEST(Scan, StopsAtTheTimeOfTheLastRecordAndReportsWhatIsPresentAsLost) {
  TemporaryFolder folder;
  const std::string source = simulated(folder);
  const auto heard = runTool({"hear", "--source", source, "--format", "jsonl"}).lines();
  const auto lines = runTool({"scan", "--source", source, "--format", "jsonl", "-q"}).lines();
  ASSERT_FALSE(heard.empty());
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(valueOf(lines.back(), "time"), valueOf(heard.back(), "time"));
  EXPECT_EQ(valueOf(lines.back(), "status"), "2");
  std::set<std::string> present;
  for (const std::string& line : lines) {
    if (valueOf(line, "event") != "\"beacon\"") continue;
    if (valueOf(line, "status") == "1")
      present.insert(valueOf(line, "uuid"));
    else
      present.erase(valueOf(line, "uuid"));
  }
  EXPECT_TRUE(present.empty());
}

TEST(Scan, PassesAJumpOfTheCapturesClockInNoTime) {
  TemporaryFolder folder;
  const std::string source = simulated(folder);
  std::string octets = contentsOf(source.substr(8));
  // The first record's time, in a file whose others are of this century, becomes the first instant of 1970.
  octets.replace(32, 8, std::string("\x00\xDC\xDD\xB3\x0F\x2F\x80\x00", 8));
  writeFile(source.substr(8), octets);
  const Ended heard = runTool({"hear", "--source", source, "--format", "jsonl", "--count", "1"});
  ASSERT_EQ(valueOf(heard.out, "time"), "0.000000");
  const Ended scanned = runTool({"scan", "--source", source, "--format", "jsonl", "-q"});
  EXPECT_EQ(scanned.status, 0);
  EXPECT_GT(scanned.lines().size(), 100U);
}

TEST(Scan, AnInterruptedSearchStopsInOrder) {
  TemporaryFolder folder;
  const std::string source = simulated(folder) + "?paced";
  for (const int signal : {SIGINT, SIGTERM}) {
    const Ended ended = runToolUntil(20, {"scan", "--source", source, "--format", "jsonl", "-q"}, signal);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(valueOf(ended.lines().back(), "status"), "2");
  }
}

TEST(Scan, CsvHasAHeaderAndTwentyFieldsInEachLine) {
  TemporaryFolder folder;
  const auto lines = runTool({"scan", "--source", simulated(folder), "--format", "csv", "-q"}).lines();
  ASSERT_GT(lines.size(), 10U);
  for (const std::string& line : lines) EXPECT_EQ(std::count(line.begin(), line.end(), ','), 19) << line;
}

using Identities = std::set<std::string>;  // "UUID/major/minor"

// The iBeacons that `range` reports.
Identities ranged(const std::string& source, const std::string& uuid) {
  const Ended ended =
      runTool({"range", "--source", source, "--uuid", uuid, "--group", "2", "--format", "jsonl", "-q"});
  EXPECT_EQ(ended.status, 0) << ended.err;
  Identities found;
  for (const std::string& line : ended.lines()) {
    if (valueOf(line, "event") != "\"beacon\"") continue;
    const std::string text = valueOf(line, "uuid");
    found.insert(text.substr(1, 36) + "/" + valueOf(line, "major") + "/" + valueOf(line, "minor"));
  }
  return found;
}

TEST(Range, ReportsWhatTheLastUnfinishedSecondHeld) {
  TemporaryFolder folder;
  const std::string capture = folder.file("short.btsnoop");
  ASSERT_EQ(
      runTool({"simulate", "--out", capture, "--beacons", "0", "--ibeacons", "3", "--seconds", "1"}).status,
      0);
  const auto uuid = [](const char* rest) {
    return "51C70E2A-9B44-4D1F-8A63-2FD075E81C36" + std::string(rest);
  };
  EXPECT_EQ(ranged("capture:" + capture, uuid("")), (Identities{uuid("/1/0"), uuid("/2/1")}));
}

// On the real captures, which are no part of the project: each UUID's beacons are those of the dissector.
TEST(Range, FindsTheBeaconsThatAnIndependentDissectorSaw) {
  const char* folderName = std::getenv("BRENLOFT_CAPTURES");
  const fs::path captures = folderName != nullptr
                                ? fs::path(folderName)
                                : fs::path(BRENLOFT_SOURCE_DIR) / ".." / "shared" / "captures";
  if (!fs::exists(captures)) GTEST_SKIP() << "no real captures in " << captures;
  std::size_t compared = 0;
  for (const auto& entry : fs::directory_iterator(captures)) {
    if (entry.path().extension() == ".tsv" || !fs::exists(entry.path().string() + ".tsv")) continue;
    std::map<std::string, Identities> seen;
    std::ifstream table(entry.path().string() + ".tsv");
    for (std::string row; std::getline(table, row);) {
      std::istringstream fields(row);
      std::vector<std::string> columns;
      for (std::string field; std::getline(fields, field, '\t');) columns.push_back(field);
      // ibeacon, malformed, crc
      if (columns.size() < 13 || columns[10].find('/') == std::string::npos) continue;
      if (columns[12] == "1" || columns[10].size() < 36) continue;
      std::string identity = columns[10].substr(0, columns[10].rfind('/'));
      std::transform(identity.begin(), identity.end(), identity.begin(), ::toupper);
      seen[identity.substr(0, 36)].insert(identity);
    }
    for (const auto& [uuid, identities] : seen) {
      EXPECT_EQ(ranged("capture:" + entry.path().string(), uuid), identities) << entry.path();
      ++compared;
    }
  }
  EXPECT_GT(compared, 0U) << "no table in " << captures << " has an iBeacon";
}

}  // namespace
}  // namespace brenloft_test
