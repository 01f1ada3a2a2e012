// Holds what `hear` and `range` print against what an independent dissector saw in real captures, which are
// not part of the project: BRENLOFT_CAPTURES names their folder.

#include <algorithm>
#include <cctype>
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

std::string withoutQuotes(std::string text) {
  std::erase(text, '"');
  return text;
}

// "ADDRESS RSSI [UUIDS] MANUFACTURER" of a line of the tool; the same from a dissection is below.
std::string comparable(const std::string& line) {
  std::string address = withoutQuotes(valueOf(line, "address"));
  std::transform(address.begin(), address.end(), address.begin(), ::tolower);
  const std::size_t begin = line.find("\"uuids\":") + 8;
  const std::string uuids = line.substr(begin, line.find(']', begin) + 1 - begin);
  const std::string manufacturer = valueOf(line, "manufacturer");
  return address + " " + valueOf(line, "rssi") + " " +
         withoutQuotes(uuids + " " + (manufacturer == "null" ? "" : manufacturer));
}

using Identities = std::set<std::string>;  // "UUID/major/minor"

struct DissectedReport {
  std::string text;
  std::string iBeacon;  // its identity and the power behind it, or no slash
  bool isMalformed = false;
};

std::vector<DissectedReport> readTable(const fs::path& file) {
  std::vector<DissectedReport> reports;
  std::ifstream table(file);
  std::string row;
  std::getline(table, row);
  while (std::getline(table, row)) {
    std::vector<std::string> cells;
    std::istringstream fields(row);
    for (std::string cell; std::getline(fields, cell, '\t');) cells.push_back(cell);
    cells.resize(14);
    if (cells[13] == "bad") continue;
    const std::string manufacturer = cells[9].substr(0, cells[9].find(';'));  // the first of several
    std::transform(cells[10].begin(), cells[10].end(), cells[10].begin(), ::toupper);
    reports.push_back(
        {cells[6] + " " + cells[7] + " [" + cells[8] + "] " + manufacturer, cells[10], cells[12] == "1"});
  }
  return reports;
}

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
  const std::string uuid = "51C70E2A-9B44-4D1F-8A63-2FD075E81C36";
  EXPECT_EQ(ranged("capture:" + capture, uuid), (Identities{uuid + "/1/0", uuid + "/2/1"}));
}

TEST(Corpus, HearAndRangePrintWhatAnIndependentDissectorSaw) {
  const char* name = std::getenv("BRENLOFT_CAPTURES");
  const fs::path folder =
      name != nullptr ? fs::path(name) : fs::path(BRENLOFT_SOURCE_DIR) / ".." / "shared" / "captures";
  if (!fs::exists(folder)) GTEST_SKIP() << "no real captures in " << folder;
  std::size_t compared = 0;
  std::size_t comparedUUIDs = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const fs::path& capture = entry.path();
    if (!fs::exists(capture.string() + ".tsv")) continue;
    SCOPED_TRACE(capture.filename());
    const std::string source = "capture:" + capture.string();
    const Ended ended = runTool({"hear", "--source", source, "--format", "jsonl"});
    EXPECT_EQ(ended.status, 0);
    const auto lines = ended.lines();
    // In this one the dissector loses a second report with each event that it gives up on.
    const std::size_t ofMalformed = capture.filename() == "btsnoop-decoder-multi.btsnoop" ? 2 : 1;
    std::size_t next = 0;
    std::map<std::string, Identities> seen;
    for (const DissectedReport& report : readTable(capture.string() + ".tsv")) {
      if (!report.isMalformed) {
        EXPECT_EQ(next < lines.size() ? comparable(lines[next]) : "nothing", report.text)
            << "line " << next + 1;
        ++compared;
        if (report.iBeacon.size() >= 36 && report.iBeacon.find('/') != std::string::npos)
          seen[report.iBeacon.substr(0, 36)].insert(report.iBeacon.substr(0, report.iBeacon.rfind('/')));
      }
      next += report.isMalformed ? ofMalformed : 1;
    }
    EXPECT_EQ(lines.size(), next);
    for (const auto& [uuid, identities] : seen) EXPECT_EQ(ranged(source, uuid), identities);
    comparedUUIDs += seen.size();
  }
  EXPECT_GT(compared, 0U) << "no dissection in " << folder;
  EXPECT_GT(comparedUUIDs, 0U) << "no dissection in " << folder << " has an iBeacon";
}

}  // namespace
}  // namespace brenloft_test
