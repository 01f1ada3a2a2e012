// Holds the reader against what an independent dissector saw in real captures, which are not part of the
// project: BRENLOFT_CAPTURES names their folder.

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/ADStructures.h"
#include "platform/bluetooth/capture/CaptureReader.h"
#include "platform/foundation/Hex.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

fs::path capturesFolder() {
  const char* folder = std::getenv("BRENLOFT_CAPTURES");
  return folder != nullptr ? fs::path(folder) : fs::path(BRENLOFT_SOURCE_DIR) / ".." / "shared" / "captures";
}

using Place = std::pair<uint64_t, unsigned>;  // record, report in it

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts{""};
  for (const char c : text) {
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

/// What the two are compared by, as one line.
std::string lineOf(const std::string& time, const std::string& address, const std::string& rssi,
                   const std::string& uuids, const std::string& manufacturer) {
  return fmt::format("time={} address={} rssi={} uuids={} manufacturer={}", time, address, rssi, uuids,
                     manufacturer);
}

/// Microseconds since 1970 of "1444809568.004975000". The dissector writes the seconds of an instant before
/// 1970 as what 32 bits without a sign hold, behind a minus.
std::string microseconds(const std::string& text) {
  const bool isNegative = text.starts_with('-');
  const auto parts = split(text.substr(isNegative ? 1 : 0), '.');
  const int64_t written = std::stoll(parts[0]);
  const int64_t seconds = isNegative ? (int64_t{1} << 32) - written : written;
  const int64_t value = seconds * 1'000'000 + std::stoll(parts[1].substr(0, 6));
  return std::to_string(isNegative ? -value : value);
}

/// Second reports of an event that the dissector loses.
const std::map<std::string, std::set<Place>> kLost{
    {"btsnoop-decoder-multi.btsnoop", {{21, 1}, {34, 1}, {36, 1}}}};

struct Dissected {
  std::map<Place, std::string> lines;
  std::set<uint64_t> malformed;  // records that the dissector gave up on
};

Dissected readDissection(const fs::path& path) {
  Dissected dissected;
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    auto cells = split(line, '\t');
    cells.resize(14);
    const uint64_t record = std::stoull(cells[0]);
    if (cells[13] == "bad") continue;
    if (cells[12] == "1") dissected.malformed.insert(record);
    const std::string manufacturer = split(cells[9], ';').front();
    dissected.lines[{record, static_cast<unsigned>(std::stoul(cells[1]))}] =
        lineOf(microseconds(cells[2]), cells[6], cells[7], cells[8], manufacturer);
  }
  return dissected;
}

std::string lineOf(const AdvertisingReport& report) {
  ADStructures structures;
  structures.read(report.data);
  std::vector<std::string> uuids;
  for (const auto& uuid : structures.serviceUUIDs) uuids.push_back(uuid.UUIDString());
  std::string address;
  for (const char c : report.address.text()) address += static_cast<char>(std::tolower(c));
  return lineOf(std::to_string(report.time.time_since_epoch().count()), address, std::to_string(report.rssi),
                fmt::format("{}", fmt::join(uuids, ",")),
                hexText(structures.manufacturerData.value_or(DataView())));
}

std::map<Place, std::string> readCapture(const fs::path& path) {
  std::map<Place, std::string> lines;
  std::string error;
  const auto reader = CaptureReader::open(path.string(), {}, error);
  EXPECT_TRUE(reader) << error;
  if (!reader) return lines;
  while (reader->next() != CaptureReader::Next::end) {
    unsigned index = 0;
    reader->read([&](const AdvertisingReport& report) {
      lines[{reader->record(), index++}] = lineOf(report);
    });
  }
  return lines;
}

class CaptureCorpus : public testing::Test {
 protected:
  void SetUp() override {
    if (!fs::is_directory(capturesFolder()))
      GTEST_SKIP() << "there are no captures in " << capturesFolder()
                   << "; BRENLOFT_CAPTURES names their folder";
  }
};

TEST_F(CaptureCorpus, agreesWithAnIndependentDissector) {
  unsigned files = 0;
  for (const auto& entry : fs::directory_iterator(capturesFolder())) {
    const fs::path dissection = entry.path().string() + ".tsv";
    if (!fs::exists(dissection)) continue;
    ++files;
    SCOPED_TRACE(entry.path().filename().string());
    const Dissected expected = readDissection(dissection);
    const auto heard = readCapture(entry.path());
    for (const auto& [place, line] : expected.lines) {
      if (expected.malformed.contains(place.first)) continue;
      const auto found = heard.find(place);
      EXPECT_EQ(found == heard.end() ? "nothing" : found->second, line)
          << "record " << place.first << ", report " << place.second;
    }
    const auto lost = kLost.find(entry.path().filename().string());
    for (const auto& [place, line] : heard)
      EXPECT_TRUE(expected.lines.contains(place) || (lost != kLost.end() && lost->second.contains(place)))
          << "record " << place.first << ", report " << place.second << " was not dissected: " << line;
  }
  EXPECT_GT(files, 0U);
}

}  // namespace
}  // namespace platform
