#include <algorithm>

#include "gateway/history/ChunkReading.h"
#include "gateway/history/HistoryStore.h"

namespace brenloft::history {
namespace {

// What is further ahead of the clock than this was written by a wrong one.
constexpr std::chrono::hours kTolerance{1};
// A round that is cut must be made anew, so it is cut only for a fair part of it.
constexpr int64_t kFairPart = kRoundSize / 4;
constexpr int64_t kPagesPerStep = 256;

}  // namespace

// Deletions move on from the lowest number, in this order.
std::optional<HistoryStore::Piece> HistoryStore::oldestPiece() {
  auto round = database_.prepare("SELECT first_seq, last_seq, since FROM round ORDER BY last_seq LIMIT 1");
  if (round.step()) return Piece{true, round.integerAt(0), round.integerAt(1), round.integerAt(2)};
  if (firstOfTail_ == nextSeq_) return std::nullopt;
  return Piece{false, firstOfTail_, nextSeq_ - 1, tailSince_};
}

// The last row that is to go, in the order of writing: what a wrong clock marked goes with what follows it.
int64_t HistoryStore::cutIn(const Piece& piece, platform::Date before, platform::Date now) {
  if (piece.since >= ticksOf(before)) return piece.first - 1;
  auto rows = database_.prepare(
      "SELECT seq, heard FROM reading WHERE seq BETWEEN ?1 AND ?2 UNION ALL "
      "SELECT seq, heard FROM event WHERE seq BETWEEN ?1 AND ?2 ORDER BY seq");
  rows.bind(1, piece.first);
  rows.bind(2, piece.last);
  int64_t cut = piece.first - 1;
  while (rows.step()) {
    const platform::Date heard = dateOf(rows.integerAt(1));
    if (heard > now + kTolerance) continue;
    if (heard >= before) return cut;
    cut = rows.integerAt(0);
  }
  return goesWithNext(piece, before, now) ? piece.last : cut;
}

bool HistoryStore::goesWithNext(const Piece& piece, platform::Date before, platform::Date now) {
  auto next =
      database_.prepare("SELECT heard FROM reading WHERE seq > ?1 AND heard <= ?2 ORDER BY seq LIMIT 1");
  next.bind(1, piece.last);
  next.bind(2, ticksOf(now + kTolerance));
  return next.step() && dateOf(next.integerAt(0)) < before;
}

void HistoryStore::remove(const Piece& piece, int64_t through) {
  isLoaded_ = false;
  database_.transaction([&] {
    for (const char* table : {"reading", "event"})
      database_.execute("DELETE FROM " + std::string(table) + " WHERE seq <= " + std::to_string(through));
    // No later row gets a deleted one's number.
    database_.execute("INSERT OR REPLACE INTO about VALUES ('last_seq', " + std::to_string(nextSeq_ - 1) +
                      "), ('deleted_through', " + std::to_string(through) + ")");
    if (!piece.isRound) return;
    if (through < piece.last) return rebuild(through + 1, piece.last);
    database_.execute("DELETE FROM chunk WHERE id < " + std::to_string(chunkId(piece.last + 1, 0)));
    database_.execute("DELETE FROM round WHERE last_seq = " + std::to_string(piece.last));
  });
  if (piece.isRound)
    isLoaded_ = true;
  else
    load();
}

// The chunks of a round whose first rows are gone.
void HistoryStore::rebuild(int64_t first, int64_t last) {
  std::unordered_map<int64_t, TailBeacon> beacons;
  eachReading(database_, first, last, [&](const ChunkReading& reading) {
    TailBeacon& beacon = beacons[reading.beacon];
    beacon.lastReading = reading.seq;
    beacon.chunk.add(reading.second(), reading.values);
  });
  const std::string range = "WHERE id >= " + std::to_string(chunkId(last, 0)) + " AND id < ";
  database_.execute("DELETE FROM chunk " + range + std::to_string(chunkId(last + 1, 0)));
  insertChunks(last, beacons);
  database_.execute("UPDATE round SET first_seq = " + std::to_string(first) +
                    " WHERE last_seq = " + std::to_string(last));
}

bool HistoryStore::pruneStep(const PruneGoal& goal, platform::Date now) {
  if (!isLoaded_) load();
  const auto piece = oldestPiece();
  if (!piece) return false;
  // What was freed and not given back yet fills first; a twentieth is left for that.
  if (goal.size && usedOctets() > *goal.size - *goal.size / 20) {
    remove(*piece, piece->last);
    return true;
  }
  if (!goal.before) return false;
  const int64_t cut = cutIn(*piece, *goal.before, now);
  const bool isWhole = cut == piece->last;
  const bool isWorthIt = goal.isExact ? cut >= piece->first : cut - piece->first >= kFairPart;
  if (isWhole || isWorthIt || (!piece->isRound && cut >= piece->first)) remove(*piece, cut);
  return isWhole;
}

uint64_t HistoryStore::usedOctets() {
  const auto number = [&](const char* sql) { return database_.integer(sql).value_or(0); };
  const int64_t pages = number("PRAGMA page_count") - number("PRAGMA freelist_count");
  return static_cast<uint64_t>(pages * number("PRAGMA page_size"));
}

bool HistoryStore::vacuumStep(bool isExact) {
  const int64_t free = database_.integer("PRAGMA freelist_count").value_or(0);
  const int64_t pages = database_.integer("PRAGMA page_count").value_or(0);
  // New rows fill free pages at no cost; moving pages to the front has one.
  const int64_t worth = isExact ? 0 : std::max<int64_t>(pages / 20, kPagesPerStep);
  if (free <= worth) return false;
  database_.execute("PRAGMA incremental_vacuum(" + std::to_string(kPagesPerStep) + ")");
  return database_.integer("PRAGMA freelist_count").value_or(0) < free;
}

}  // namespace brenloft::history
