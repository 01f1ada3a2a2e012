// Holds what `hear` prints against what an independent dissector saw in real captures, which are not part of
// the project: BRENLOFT_CAPTURES names their folder.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

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

struct DissectedReport {
  std::string text;
  bool isMalformed = false;
};

std::vector<DissectedReport> readTable(const std::filesystem::path& file) {
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
    reports.push_back({cells[6] + " " + cells[7] + " [" + cells[8] + "] " + manufacturer, cells[12] == "1"});
  }
  return reports;
}

TEST(Corpus, HearPrintsWhatAnIndependentDissectorSawInItsOrder) {
  namespace fs = std::filesystem;
  const char* name = std::getenv("BRENLOFT_CAPTURES");
  const fs::path folder =
      name != nullptr ? fs::path(name) : fs::path(BRENLOFT_SOURCE_DIR) / ".." / "shared" / "captures";
  if (!fs::exists(folder)) GTEST_SKIP() << "no real captures in " << folder;
  std::size_t compared = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const fs::path& capture = entry.path();
    if (!fs::exists(capture.string() + ".tsv")) continue;
    SCOPED_TRACE(capture.filename());
    const Ended ended = runTool({"hear", "--source", "capture:" + capture.string(), "--format", "jsonl"});
    EXPECT_EQ(ended.status, 0);
    const auto lines = ended.lines();
    // In this one the dissector loses a second report with each event that it gives up on.
    const std::size_t ofMalformed = capture.filename() == "btsnoop-decoder-multi.btsnoop" ? 2 : 1;
    std::size_t next = 0;
    for (const DissectedReport& report : readTable(capture.string() + ".tsv")) {
      if (!report.isMalformed) {
        EXPECT_EQ(next < lines.size() ? comparable(lines[next]) : "nothing", report.text)
            << "line " << next + 1;
        ++compared;
      }
      next += report.isMalformed ? ofMalformed : 1;
    }
    EXPECT_EQ(lines.size(), next);
  }
  EXPECT_GT(compared, 0U) << "no dissection in " << folder;
}

}  // namespace
}  // namespace brenloft_test
