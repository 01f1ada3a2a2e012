#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "gateway/history/HistoryReaderCore.h"

namespace brenloft {
namespace {

using history::ReadStep;
using platform::Result;
using platform::SQLiteDatabase;

// Goes through the rounds from the latest on, until none that is left can have a later reading. Each step may
// be taken twice.
class InstantReader {
 public:
  struct Round {
    int64_t first;
    int64_t last;
    int64_t until;
  };

  InstantReader(ReadStep& step, const std::vector<BeaconId>& beacons, int64_t instant, int64_t since)
      : step_(step),
        instant_(instant),
        since_(since),
        wanted_(beacons.begin(), beacons.end()),
        isEvery_(beacons.empty()) {}

  /// Reads what came after the last round; the rounds that are to be looked at.
  std::vector<Round> readTail(SQLiteDatabase& database) {
    learnIds();
    const int64_t lastRound = database.integer("SELECT max(last_seq) FROM round").value_or(0);
    readRows(database, lastRound + 1, std::numeric_limits<int64_t>::max());
    std::vector<Round> rounds;
    auto rows = database.prepare(
        "SELECT first_seq, last_seq, until FROM round WHERE since <= ? AND until >= ? "
        "ORDER BY until DESC, last_seq DESC");
    rows.bind(1, instant_);
    rows.bind(2, since_);
    while (rows.step()) rounds.push_back({rows.integerAt(0), rows.integerAt(1), rows.integerAt(2)});
    return rounds;
  }

  bool isSettled(const Round& round) const {
    return std::ranges::all_of(wanted_, [&](const BeaconId& beacon) { return isSettled(beacon, round); });
  }

  void readRound(SQLiteDatabase& database, const Round& round) {
    auto chunk = database.prepare("SELECT 1 FROM chunk WHERE id = ?");
    const bool isWorthIt = std::ranges::any_of(ids_, [&](const auto& known) {
      if (isSettled(known.first, round)) return false;
      chunk.bind(1, history::chunkId(round.last, known.second));
      const bool isThere = chunk.step();
      chunk.reset();
      return isThere;
    });
    if (isWorthIt) readRows(database, round.first, round.last);
  }

  std::vector<HistoryBeacon> found() && {
    std::vector<HistoryBeacon> beacons;
    for (auto& [beacon, row] : found_) beacons.push_back({beacon, std::move(row)});
    return beacons;
  }

 private:
  void learnIds() {
    if (isEvery_) {
      ids_ = step_.everyBeacon();
      for (const auto& [beacon, id] : ids_) wanted_.insert(beacon);
      return;
    }
    ids_ = step_.idsOf(std::vector<BeaconId>(wanted_.begin(), wanted_.end()));
  }
  bool isSettled(const BeaconId& beacon, const Round& round) const {
    const auto found = found_.find(beacon);
    return found != found_.end() && heardAt(found->second.record) >= history::dateOf(round.until);
  }

  void readRows(SQLiteDatabase& database, int64_t first, int64_t last) {
    auto rows = database.prepare(std::string("SELECT ") + ReadStep::kReadingColumns +
                                 " FROM reading WHERE seq BETWEEN ?1 AND ?2 AND heard <= ?3 "
                                 "ORDER BY seq DESC");
    rows.bind(1, first);
    rows.bind(2, last);
    rows.bind(3, instant_);
    while (rows.step()) {
      const BeaconId& beacon = step_.beacon(step_.source(rows.integerAt(1)).beacon);
      if (!wanted_.contains(beacon)) continue;
      const auto found = found_.find(beacon);
      if (found == found_.end())
        found_.emplace(beacon, step_.readingAt(rows));
      else if (heardAt(found->second.record) < history::dateOf(rows.integerAt(2)))
        found->second = step_.readingAt(rows);
    }
  }

  ReadStep& step_;
  const int64_t instant_;
  const int64_t since_;
  std::set<BeaconId> wanted_;
  const bool isEvery_;
  std::vector<std::pair<BeaconId, int64_t>> ids_;  // of those wanted that are there
  std::map<BeaconId, HistoryRow> found_;
};

}  // namespace

Result<std::vector<HistoryBeacon>> HistoryReader::latestAt(const std::vector<BeaconId>& beacons,
                                                           platform::Date instant, platform::Date since) {
  InstantReader reader(core_->step, beacons, history::heldTicksOf(instant), history::heldTicksOf(since));
  std::vector<InstantReader::Round> rounds;
  const auto take = [&](const std::function<void(SQLiteDatabase&)>& step) {
    return platform::resultOf([&] { core_->step.at(step); });
  };
  if (const auto read = take([&](SQLiteDatabase& database) { rounds = reader.readTail(database); }); !read)
    return read.error();
  for (const InstantReader::Round& round : rounds) {
    if (reader.isSettled(round)) break;
    const auto read = take([&](SQLiteDatabase& database) { reader.readRound(database, round); });
    if (!read) return read.error();
  }
  return std::move(reader).found();
}

}  // namespace brenloft
