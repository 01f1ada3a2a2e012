#include "gateway/history/HistoryReader.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "gateway/history/HistoryReaderCore.h"
#include "gateway/history/WriterLock.h"

namespace brenloft {
namespace {

using history::ReadStep;
using platform::Error;
using platform::Result;
using platform::SQLiteDatabase;
using platform::SQLiteStatement;

// What one step looks at.
constexpr int64_t kMostRowsPerStep = history::kRoundSize;
constexpr int kMostRoundsPerStep = 256;

int64_t numberIn(SQLiteDatabase& database, const char* sql) {
  return database.integer(sql).value_or(0);
}

int64_t lastSeqIn(SQLiteDatabase& database) {
  return std::max({numberIn(database, "SELECT max(seq) FROM reading"),
                   numberIn(database, "SELECT max(seq) FROM event"),
                   numberIn(database, "SELECT value FROM about WHERE key = 'last_seq'")});
}

int64_t firstSeqIn(SQLiteDatabase& database) {
  const auto reading = database.integer("SELECT min(seq) FROM reading").value_or(0);
  const auto event = database.integer("SELECT min(seq) FROM event").value_or(0);
  return reading == 0 ? event : event == 0 ? reading : std::min(reading, event);
}

// One step through the rows: a round or a part of the rest at a time.
class PageReader {
 public:
  PageReader(ReadStep& step, SQLiteDatabase& database, const HistoryFilter& filter, std::size_t limit)
      : step_(step),
        database_(database),
        filter_(filter),
        limit_(limit),
        since_(history::heldTicksOf(filter.span.since)),
        until_(history::heldTicksOf(filter.span.until)) {
    for (const auto& [beacon, id] : step.idsOf(filter.beacons)) beacons_.insert(id);
  }

  HistoryPage read(int64_t after) {
    const int64_t last = lastSeqIn(database_);
    const int64_t lastRound = numberIn(database_, "SELECT max(last_seq) FROM round");
    page_.through = after;
    if (!filter_.hasReadings) {
      page_.isLast = readEvents(last);
      return std::move(page_);
    }
    int rounds = 0;
    while (page_.through < last && page_.rows.size() < limit_ && looked_ < kMostRowsPerStep) {
      if (++rounds > kMostRoundsPerStep) break;
      if (page_.through < lastRound)
        readRound(lastRound);
      else
        readPiece(std::min(last, page_.through + kMostRowsPerStep), true);
    }
    page_.isLast = page_.through >= last;
    return std::move(page_);
  }

 private:
  // Events have a table of their own, and are few. True behind the last of them.
  bool readEvents(int64_t last) {
    if (filter_.hasEvents) {
      auto events = prepare("event", ReadStep::kEventColumns, last);
      while (events.step()) {
        if (page_.rows.size() == limit_ || ++looked_ > kMostRowsPerStep) return false;
        page_.through = events.integerAt(0);
        if (isWanted(events.integerAt(2), events.integerAt(3))) page_.rows.push_back(step_.eventAt(events));
      }
    }
    page_.through = std::max(page_.through, last);
    return true;
  }

  // The next round in which there may be something.
  void readRound(int64_t lastRound) {
    auto round = database_.prepare(
        "SELECT last_seq, first_seq FROM round WHERE last_seq > ?1 AND until >= ?2 AND since < ?3 "
        "ORDER BY last_seq LIMIT 1");
    round.bind(1, page_.through);
    round.bind(2, since_);
    round.bind(3, until_);
    if (!round.step()) {
      page_.through = lastRound;
      return;
    }
    const int64_t last = round.integerAt(0);
    // Those before it were passed over: nothing of them is wanted.
    page_.through = std::max(page_.through, round.integerAt(1) - 1);
    readPiece(last, hasReadings(last));
  }

  bool hasReadings(int64_t round) {
    if (filter_.beacons.empty()) return true;
    auto chunk = database_.prepare("SELECT 1 FROM chunk WHERE id = ?");
    return std::ranges::any_of(beacons_, [&](int64_t beacon) {
      chunk.bind(1, history::chunkId(round, beacon));
      const bool isThere = chunk.step();
      chunk.reset();
      return isThere;
    });
  }

  void readPiece(int64_t last, bool hasReadings) {
    std::vector<HistoryRow> events;
    if (filter_.hasEvents) events = eventsThrough(last);
    auto event = events.begin();
    int64_t through = last;
    const auto takeEventsBefore = [&](int64_t seq) {
      while (event != events.end() && event->seq < seq) {
        if (page_.rows.size() == limit_) return;
        through = event->seq;
        page_.rows.push_back(std::move(*event++));
      }
    };
    bool isFull = false;
    if (filter_.hasReadings && hasReadings) {
      auto readings = prepare("reading", ReadStep::kReadingColumns, last);
      while (!isFull && readings.step()) {
        ++looked_;
        if (!isWanted(step_.source(readings.integerAt(1)).beacon, readings.integerAt(2))) continue;
        takeEventsBefore(readings.integerAt(0));
        if (!(isFull = page_.rows.size() == limit_)) page_.rows.push_back(step_.readingAt(readings));
        if (!isFull) through = readings.integerAt(0);
      }
    }
    if (!isFull) takeEventsBefore(last + 1);
    isFull = isFull || event != events.end();
    page_.through = isFull ? through : last;
  }

  std::vector<HistoryRow> eventsThrough(int64_t last) {
    std::vector<HistoryRow> rows;
    auto events = prepare("event", ReadStep::kEventColumns, last);
    while (rows.size() < limit_ + 1 && events.step()) {
      ++looked_;
      if (isWanted(events.integerAt(2), events.integerAt(3))) rows.push_back(step_.eventAt(events));
    }
    return rows;
  }

  SQLiteStatement prepare(const std::string& table, const std::string& columns, int64_t last) {
    auto statement = database_.prepare("SELECT " + columns + " FROM " + table +
                                       " WHERE seq > ?1 AND seq <= ?2 ORDER BY seq");
    statement.bind(1, page_.through);
    statement.bind(2, last);
    return statement;
  }

  bool isWanted(int64_t beacon, int64_t heard) const {
    if (heard < since_ || heard >= until_) return false;
    if (filter_.hasGateway) return beacon == 0 || beacons_.contains(beacon);
    return filter_.beacons.empty() || beacons_.contains(beacon);
  }

  ReadStep& step_;
  SQLiteDatabase& database_;
  const HistoryFilter& filter_;
  const std::size_t limit_;
  const int64_t since_;
  const int64_t until_;
  std::unordered_set<int64_t> beacons_;
  HistoryPage page_;
  int64_t looked_ = 0;
};

// Of a beacon: not all of its rows were deleted.
const std::string kHasRows =
    "last_seq > coalesce((SELECT value FROM about WHERE key = 'deleted_through'), 0)";

}  // namespace

template <typename Value>
Result<Value> HistoryReader::Core::ask(const std::function<Value(SQLiteDatabase&)>& question) {
  std::optional<Value> answer;
  const auto read = platform::resultOf(
      [&] { step.at([&](SQLiteDatabase& database) { answer.emplace(question(database)); }); });
  if (!read) return read.error();
  return *std::move(answer);
}

Result<std::unique_ptr<HistoryReader>> HistoryReader::open(const std::filesystem::path& file) {
  // Its writer makes it empty first.
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  if (error == std::errc::no_such_file_or_directory || (!error && size == 0))
    return Error{Error::Kind::absent, "no history yet"};
  std::unique_ptr<HistoryReader> reader;
  const auto opened =
      platform::resultOf([&] { reader.reset(new HistoryReader(std::make_unique<Core>(file))); });
  if (!opened) return opened.error();
  return reader;
}

std::optional<bool> HistoryReader::isWritten(const std::filesystem::path& file) {
  return history::WriterLock::isHeld(file);
}

HistoryReader::HistoryReader(std::unique_ptr<Core> core) : core_(std::move(core)) {}
HistoryReader::~HistoryReader() = default;

Result<std::string> HistoryReader::storeId() {
  return core_->ask<std::string>([](SQLiteDatabase& database) {
    return database.text("SELECT value FROM about WHERE key = 'store'").value_or("");
  });
}

Result<int64_t> HistoryReader::lastSeq() {
  return core_->ask<int64_t>(lastSeqIn);
}

Result<uint64_t> HistoryReader::count() {
  return core_->ask<uint64_t>([](SQLiteDatabase& database) {
    const int64_t first = firstSeqIn(database);
    return first == 0 ? uint64_t{0} : static_cast<uint64_t>(lastSeqIn(database) - first + 1);
  });
}

Result<HistoryPage> HistoryReader::rows(int64_t after, const HistoryFilter& filter, std::size_t limit) {
  return core_->ask<HistoryPage>(
      [&](SQLiteDatabase& database) { return PageReader(core_->step, database, filter, limit).read(after); });
}

Result<std::vector<KeptState>> HistoryReader::states() {
  return core_->ask<std::vector<KeptState>>([](SQLiteDatabase& database) {
    std::vector<KeptState> states;
    auto rows = database.prepare("SELECT owner, subject, text FROM state ORDER BY owner, subject");
    while (rows.step()) states.push_back({rows.textAt(0), rows.textAt(1), rows.textAt(2)});
    return states;
  });
}

Result<std::optional<platform::Date>> HistoryReader::newestBefore(platform::Date instant) {
  return core_->ask<std::optional<platform::Date>>([&](SQLiteDatabase& database) {
    const std::string tail = " WHERE seq > coalesce((SELECT max(last_seq) FROM round), 0) AND heard < ?1";
    // Only the rounds about the instant have to be looked into.
    auto newest = database.prepare(
        "SELECT max(heard) FROM (SELECT until AS heard FROM round WHERE until < ?1 UNION ALL "
        "SELECT heard FROM round CROSS JOIN reading ON seq BETWEEN first_seq AND last_seq "
        "WHERE since < ?1 AND until >= ?1 AND heard < ?1 UNION ALL "
        "SELECT heard FROM round CROSS JOIN event ON seq BETWEEN first_seq AND last_seq "
        "WHERE since < ?1 AND until >= ?1 AND heard < ?1 UNION ALL "
        "SELECT heard FROM reading" +
        tail + " UNION ALL SELECT heard FROM event" + tail + ") HAVING count(*) > 0");
    newest.bind(1, history::heldTicksOf(instant));
    return newest.step() ? std::optional(history::dateOf(newest.integerAt(0))) : std::nullopt;
  });
}

Result<std::optional<std::string>> HistoryReader::radioState() {
  return core_->ask<std::optional<std::string>>([](SQLiteDatabase& database) {
    auto event = database.prepare("SELECT text FROM event WHERE kind = ? ORDER BY seq DESC LIMIT 1");
    event.bind(1, static_cast<int64_t>(BeaconEvent::Kind::radio));
    return event.step() ? std::optional(event.textAt(0)) : std::nullopt;
  });
}

Result<std::optional<HistoryRow>> HistoryReader::firstRadioEvent(platform::Date since) {
  return core_->ask<std::optional<HistoryRow>>([&](SQLiteDatabase& database) -> std::optional<HistoryRow> {
    auto event = database.prepare(std::string("SELECT ") + ReadStep::kEventColumns +
                                  " FROM event WHERE kind = ?1 AND heard >= ?2 ORDER BY seq LIMIT 1");
    event.bind(1, static_cast<int64_t>(BeaconEvent::Kind::radio));
    event.bind(2, history::heldTicksOf(since));
    if (!event.step()) return std::nullopt;
    return core_->step.eventAt(event);
  });
}

Result<HistorySpan> HistoryReader::extent() {
  return core_->ask<HistorySpan>([](SQLiteDatabase& database) {
    const std::string tail = " WHERE seq > coalesce((SELECT max(last_seq) FROM round), 0)";
    auto times = database.prepare(
        "SELECT min(since), max(until) FROM (SELECT since, until FROM round "
        "UNION ALL SELECT heard, heard FROM reading" +
        tail + " UNION ALL SELECT heard, heard FROM event" + tail + ") HAVING count(*) > 0");
    if (!times.step()) return HistorySpan{platform::Date(), platform::Date()};
    return HistorySpan{history::dateOf(times.integerAt(0)),
                       history::dateOf(times.integerAt(1)) + std::chrono::microseconds(1)};
  });
}

// The newest of each as of the last round, and what came since.
Result<std::vector<HistoryBeacon>> HistoryReader::latest(std::size_t most,
                                                         const std::vector<BeaconId>& always) {
  return core_->ask<std::vector<HistoryBeacon>>([&](SQLiteDatabase& database) {
    std::unordered_map<int64_t, int64_t> newest;  // 0: only events
    auto known = database.prepare("SELECT id, last_reading FROM beacon WHERE " + kHasRows +
                                  " ORDER BY last_reading DESC LIMIT ?");
    known.bind(1, static_cast<int64_t>(std::min<std::size_t>(most, std::numeric_limits<int64_t>::max())));
    while (known.step()) newest[known.integerAt(0)] = known.integerAt(1);
    for (const BeaconId& beacon : always) core_->addLast(database, beacon, newest);
    const std::string tail = " WHERE seq > coalesce((SELECT max(last_seq) FROM round), 0)";
    std::unordered_map<int64_t, int64_t> bySource;
    auto since = database.prepare("SELECT seq, source FROM reading" + tail);
    while (since.step()) bySource[since.integerAt(1)] = since.integerAt(0);
    for (const auto& [source, seq] : bySource) {
      int64_t& last = newest[core_->step.source(source).beacon];
      last = std::max(last, seq);
    }
    auto events = database.prepare("SELECT DISTINCT beacon FROM event" + tail + " AND beacon IS NOT NULL");
    while (events.step()) newest.try_emplace(events.integerAt(0), 0);
    return core_->withRows(database, newest);
  });
}

void HistoryReader::Core::addLast(SQLiteDatabase& database, const BeaconId& beacon,
                                  std::unordered_map<int64_t, int64_t>& newest) {
  const auto id = step.idOf(beacon);
  if (!id || newest.contains(*id)) return;
  auto row = database.prepare("SELECT last_reading FROM beacon WHERE id = ? AND " + kHasRows);
  row.bind(1, *id);
  if (row.step()) newest[*id] = row.integerAt(0);
}

std::vector<HistoryBeacon> HistoryReader::Core::withRows(SQLiteDatabase& database,
                                                         const std::unordered_map<int64_t, int64_t>& newest) {
  std::vector<std::pair<int64_t, int64_t>> ordered(newest.begin(), newest.end());
  std::ranges::sort(ordered, {}, [&](const auto& one) -> const BeaconId& { return step.beacon(one.first); });
  std::vector<HistoryBeacon> beacons;
  beacons.reserve(ordered.size());
  auto row =
      database.prepare(std::string("SELECT ") + ReadStep::kReadingColumns + " FROM reading WHERE seq = ?");
  for (const auto& [id, seq] : ordered) {
    HistoryBeacon& beacon = beacons.emplace_back(HistoryBeacon{step.beacon(id)});
    if (seq == 0) continue;
    row.bind(1, seq);
    if (row.step()) beacon.latest = step.readingAt(row);
    row.reset();
  }
  return beacons;
}

}  // namespace brenloft
