#include "gateway/history/HistoryMaintenance.h"

#include <algorithm>
#include <map>
#include <string>

#include "gateway/history/ChunkReading.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryStore.h"

namespace brenloft {
namespace {

using history::ChunkBuilder;
using history::ChunkReading;
using platform::Error;
using platform::Result;
using platform::SQLiteDatabase;

// Why numbers that are not there, or a round that does not say what its rows do, are wrong.
class Checker {
 public:
  explicit Checker(SQLiteDatabase& database) : database_(database) {}

  std::vector<std::string> check() {
    problems_ = platform::damagesOf(database_);
    // What follows trusts the file's structure.
    if (problems_.empty()) checkNumbers();
    if (problems_.empty()) checkRounds();
    return std::move(problems_);
  }

 private:
  void checkNumbers() {
    const auto number = [&](const char* sql) { return database_.integer(sql).value_or(0); };
    const int64_t deleted = number("SELECT value FROM about WHERE key = 'deleted_through'");
    const int64_t rows = number("SELECT count(*) FROM reading") + number("SELECT count(*) FROM event");
    const int64_t newest =
        std::max({number("SELECT max(seq) FROM reading"), number("SELECT max(seq) FROM event"), deleted});
    if (rows != newest - deleted)
      problems_.push_back("the numbers " + std::to_string(deleted + 1) + " to " + std::to_string(newest) +
                          " have " + std::to_string(rows) + " rows");
    if (const int64_t lost =
            number("SELECT count(*) FROM reading LEFT JOIN source ON source.id = reading.source "
                   "LEFT JOIN beacon ON beacon.id = source.beacon WHERE beacon.id IS NULL"))
      problems_.push_back(std::to_string(lost) + " readings are of no beacon");
  }

  void checkRounds() {
    auto rounds = database_.prepare("SELECT first_seq, last_seq FROM round ORDER BY last_seq");
    int64_t before = database_.integer("SELECT value FROM about WHERE key = 'deleted_through'").value_or(0);
    while (rounds.step()) {
      const int64_t first = rounds.integerAt(0);
      const int64_t last = rounds.integerAt(1);
      if (first != before + 1) problems_.push_back("no round holds the number " + std::to_string(before + 1));
      if (!isRound(first, last))
        problems_.push_back("the round of " + std::to_string(first) + " to " + std::to_string(last) +
                            " is not what its rows say");
      before = last;
    }
  }

  bool isRound(int64_t first, int64_t last) {
    std::map<int64_t, ChunkBuilder> chunks;
    history::eachReading(database_, first, last, [&](const ChunkReading& reading) {
      chunks[reading.beacon].add(reading.second(), reading.values);
    });
    auto stored = database_.prepare("SELECT data FROM chunk WHERE id >= ?1 AND id < ?2 ORDER BY id");
    stored.bind(1, history::chunkId(last, 0));
    stored.bind(2, history::chunkId(last + 1, 0));
    for (const auto& [beacon, chunk] : chunks) {
      if (!stored.step()) return false;
      const auto view = stored.viewAt(0, platform::NSAttributeType::BinaryData);
      const auto* data = std::get_if<platform::DataView>(&view);
      const std::string octets = chunk.encoded();
      if (data == nullptr || !std::ranges::equal(*data, std::as_bytes(std::span(octets)))) return false;
    }
    return !stored.step();
  }

  SQLiteDatabase& database_;
  std::vector<std::string> problems_;
};

template <typename Work>
Result<> withHistory(const std::filesystem::path& file, const Work& work) {
  return platform::resultOf([&] { history::openForReading(file).atOneMoment(work); });
}

}  // namespace

Result<uint64_t> pruneHistory(const std::filesystem::path& file, const HistoryPruning& pruning,
                              platform::Date now) {
  auto reader = HistoryReader::open(file);
  if (!reader) return reader.error();
  uint64_t pruned = 0;
  const auto done = platform::resultOf([&] {
    history::HistoryStore store(file, {});
    const uint64_t before = (*reader)->count().value_or(0);
    while (store.pruneStep({.before = pruning.before, .size = pruning.size, .isExact = true}, now)) {
    }
    while (store.vacuumStep(true)) {
    }
    store.moveLog();
    pruned = before - std::min(before, (*reader)->count().value_or(0));
  });
  if (!done) return done.error();
  return pruned;
}

Result<std::vector<std::string>> checkHistory(const std::filesystem::path& file) {
  std::vector<std::string> problems;
  const auto checked = withHistory(file, [&](SQLiteDatabase& database) {
    database.execute("BEGIN");
    problems = Checker(database).check();
    database.execute("COMMIT");
  });
  if (!checked) return checked.error();
  return problems;
}

Result<> backUpHistory(const std::filesystem::path& file, const std::filesystem::path& copy) {
  return withHistory(file, [&](SQLiteDatabase& database) { database.copyTo(copy); });
}

}  // namespace brenloft
