#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include "gateway/history/Chunk.h"
#include "gateway/history/ChunkReading.h"
#include "gateway/history/HistoryReaderCore.h"

namespace brenloft {
namespace {

using history::ChunkColumn;
using platform::Result;
using platform::SQLiteDatabase;
using platform::SQLiteStatement;

// So many rounds are folded in one snapshot.
constexpr int64_t kRoundsPerStep = 512;

struct QuantityForm {
  Quantity quantity;
  std::optional<ChunkColumn> column;  // absent: only rows have it
  const char* sql;                    // as it is shown
};

constexpr std::array kForms{
    QuantityForm{Quantity::rssi, ChunkColumn::rssi, "rssi"},
    QuantityForm{Quantity::temperature, ChunkColumn::temperature, "temperature + temperature_offset"},
    QuantityForm{Quantity::humidity, ChunkColumn::humidity, "humidity + humidity_offset"},
    QuantityForm{Quantity::battery, ChunkColumn::battery, "battery + battery_offset"},
    QuantityForm{Quantity::emergency, ChunkColumn::emergency, "emergency"},
    QuantityForm{Quantity::txPower, std::nullopt, "tx_power"},
    QuantityForm{Quantity::xAccel, std::nullopt, "x"},
    QuantityForm{Quantity::yAccel, std::nullopt, "y"},
    QuantityForm{Quantity::zAccel, std::nullopt, "z"},
};

int64_t floorTo(int64_t second, int64_t width) {
  const int64_t rest = second % width;
  return second - (rest < 0 ? rest + width : rest);
}

// Gathers values by the piece in which they were heard.
class Pieces {
 public:
  Pieces(int64_t since, int64_t until, int64_t width) : since_(since), until_(until), width_(width) {}

  void add(int64_t second, const std::optional<int32_t>& value) {
    if (!value || second < since_ || second >= until_) return;
    // Most come in order.
    if (current_ == nullptr || second < start_ || second - start_ >= width_) {
      start_ = floorTo(second, width_);
      current_ = &pieces_[start_];
    }
    Sum& sum = *current_;
    ++sum.count;
    sum.total += *value;
    sum.minimum = std::min(sum.minimum, *value);
    sum.maximum = std::max(sum.maximum, *value);
  }

  /// Keeps what was added since the last time, or drops it.
  void goOn() { kept_ = pieces_; }
  void goBack() {
    pieces_ = kept_;
    current_ = nullptr;
  }
  int64_t since() const { return since_; }
  int64_t until() const { return until_; }

  std::vector<HistoryPoint> points() const {
    std::vector<HistoryPoint> points;
    for (const auto& [start, sum] : pieces_) {
      points.push_back({platform::Date(std::chrono::seconds(start)), sum.count, sum.minimum, sum.maximum,
                        static_cast<double>(sum.total) / static_cast<double>(sum.count)});
    }
    return points;
  }

 private:
  struct Sum {
    uint64_t count = 0;
    int64_t total = 0;
    int32_t minimum = std::numeric_limits<int32_t>::max();
    int32_t maximum = std::numeric_limits<int32_t>::min();
  };

  const int64_t since_;
  const int64_t until_;
  const int64_t width_;
  std::map<int64_t, Sum> pieces_;
  std::map<int64_t, Sum> kept_;
  Sum* current_ = nullptr;
  int64_t start_ = 0;
};

std::string_view blobAt(const SQLiteStatement& statement, int column) {
  const auto view = statement.viewAt(column, platform::NSAttributeType::BinaryData);
  const auto* data = std::get_if<platform::DataView>(&view);
  if (data == nullptr) return {};
  return {reinterpret_cast<const char*>(data->data()), data->size()};
}

// Whole seconds around a span.
std::pair<int64_t, int64_t> secondsOf(const HistorySpan& span) {
  constexpr auto day = std::chrono::hours(24);
  const auto since = std::max(span.since, platform::Date::min() + day);
  const auto until = std::min(span.until, platform::Date::max() - day);
  return {std::chrono::floor<std::chrono::seconds>(since).time_since_epoch().count(),
          std::chrono::ceil<std::chrono::seconds>(until).time_since_epoch().count()};
}

int64_t ticksOfSecond(int64_t second) {
  constexpr int64_t most = 300'000'000'000;
  return history::ticksOf(platform::Date(std::chrono::seconds(std::clamp(second, -most, most))));
}

// A quantity and what is gathered of it.
struct Quantified {
  const QuantityForm& form;
  Pieces pieces;
};

// Folds the rounds of a snapshot, and the rows after the last one.
class Folder {
 public:
  Folder(SQLiteDatabase& database, int64_t beacon, std::vector<Quantified>& quantities)
      : database_(database),
        beacon_(beacon),
        quantities_(quantities),
        chunk_(database.prepare("SELECT data FROM chunk WHERE id = ?")) {}

  /// Folds the next rounds after `through`, which then is the last of them; after the last round the rest,
  /// and true.
  bool foldStep(int64_t& through) {
    auto rounds = database_.prepare(
        "SELECT first_seq, last_seq FROM round WHERE last_seq > ?1 AND until >= ?2 AND since < ?3 "
        "ORDER BY last_seq LIMIT ?4");
    rounds.bind(1, through);
    rounds.bind(2, ticksOfSecond(quantities_.front().pieces.since()));
    rounds.bind(3, ticksOfSecond(quantities_.front().pieces.until()));
    rounds.bind(4, kRoundsPerStep);
    int64_t count = 0;
    for (; rounds.step(); ++count) {
      foldRound(rounds.integerAt(0), rounds.integerAt(1));
      through = rounds.integerAt(1);
    }
    if (count == kRoundsPerStep) return false;
    const int64_t lastRound = database_.integer("SELECT max(last_seq) FROM round").value_or(0);
    foldRows(std::max(through, lastRound) + 1, std::numeric_limits<int64_t>::max());
    return true;
  }

 private:
  void foldRound(int64_t first, int64_t last) {
    chunk_.bind(1, history::chunkId(last, beacon_));
    const bool isThere = chunk_.step();
    bool isInRows = false;
    for (Quantified& one : quantities_)
      if (isThere && one.form.column)
        foldChunk(blobAt(chunk_, 0), one);
      else
        isInRows = isThere;
    chunk_.reset();
    if (isInRows) foldRows(first, last, true);
  }

  // Of a round only what its chunk does not have.
  void foldRows(int64_t first, int64_t last, bool isRound = false) {
    std::string columns = "heard";
    std::vector<Pieces*> wanted;
    for (Quantified& one : quantities_) {
      if (isRound && one.form.column) continue;
      columns += std::string(", ") + one.form.sql;
      wanted.push_back(&one.pieces);
    }
    auto rows = database_.prepare("SELECT " + columns +
                                  " FROM reading JOIN source ON source.id = reading.source "
                                  "WHERE seq BETWEEN ?1 AND ?2 AND beacon = ?3");
    rows.bind(1, first);
    rows.bind(2, last);
    rows.bind(3, beacon_);
    while (rows.step())
      for (std::size_t i = 0; i < wanted.size(); ++i)
        wanted[i]->add(history::secondOf(rows.integerAt(0)),
                       history::numberAt(rows, static_cast<int>(i) + 1));
  }

  static void foldChunk(std::string_view octets, Quantified& one) {
    const auto series = history::decodeChunk(octets, *one.form.column);
    if (!series) platform::refuse("a chunk is damaged");
    for (std::size_t i = 0; i < series->seconds.size(); ++i)
      one.pieces.add(series->seconds[i], series->values[i]);
  }

  SQLiteDatabase& database_;
  const int64_t beacon_;
  std::vector<Quantified>& quantities_;
  SQLiteStatement chunk_;
};

}  // namespace

Result<std::vector<std::vector<HistoryPoint>>> HistoryReader::pieces(const BeaconId& beacon,
                                                                     std::span<const Quantity> quantities,
                                                                     HistorySpan span,
                                                                     std::chrono::seconds width) {
  const auto [since, until] = secondsOf(span);
  std::vector<Quantified> gathered;
  for (const Quantity quantity : quantities)
    gathered.push_back({*std::ranges::find(kForms, quantity, &QuantityForm::quantity),
                        Pieces(since, until, std::max<int64_t>(width.count(), 1))});
  int64_t through = 0;
  for (bool isDone = gathered.empty(); !isDone;) {
    const auto read = platform::resultOf([&] {
      core_->step.at([&, from = through](SQLiteDatabase& database) {
        // A step that has to be taken again begins where it began.
        for (Quantified& one : gathered) one.pieces.goBack();
        through = from;
        const auto id = core_->step.idOf(beacon);
        isDone = !id || Folder(database, *id, gathered).foldStep(through);
      });
    });
    if (!read) return read.error();
    for (Quantified& one : gathered) one.pieces.goOn();
  }
  std::vector<std::vector<HistoryPoint>> points;
  for (const Quantified& one : gathered) points.push_back(one.pieces.points());
  return points;
}

Result<std::vector<HistoryPoint>> HistoryReader::pieces(const BeaconId& beacon, Quantity quantity,
                                                        HistorySpan span, std::chrono::seconds width) {
  auto all = pieces(beacon, std::span(&quantity, 1), span, width);
  if (!all) return all.error();
  return std::move(all->front());
}

Result<std::vector<HistoryPoint>> HistoryReader::series(const BeaconId& beacon, Quantity quantity,
                                                        HistorySpan span, std::size_t points) {
  const auto [since, until] = secondsOf(span);
  // One more may begin before the span.
  const auto wanted = static_cast<int64_t>(std::max<std::size_t>(points, 2)) - 1;
  const int64_t width = (std::max<int64_t>(until - since, 1) - 1) / wanted + 1;
  return pieces(beacon, quantity, span, std::chrono::seconds(width));
}

}  // namespace brenloft
