#include "platform/coredata/StoreReader.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "platform/coredata/SQLiteStoreFile.h"

namespace platform {

namespace {

// What is copied before it is handed over.
constexpr std::size_t kMostReadAtOnce = 500;
constexpr std::size_t kOctetsPerStep = 1 << 20;

class CopiedRows {
 public:
  /// False when there is enough.
  bool add(const StoredRow& row) {
    Copy& copy = copies_.emplace_back();
    copy.number = row.number;
    for (const auto& view : row.values) {
      copy.values.push_back(valueOf(view));
      if (const auto* text = std::get_if<std::string_view>(&view)) octets_ += text->size();
      if (const auto* data = std::get_if<DataView>(&view)) octets_ += data->size();
    }
    return copies_.size() < kMostReadAtOnce && octets_ < kOctetsPerStep;
  }
  void clear() {
    copies_.clear();
    octets_ = 0;
  }

  /// The number of the last row, nothing without one.
  std::optional<int64_t> last() const {
    return copies_.empty() ? std::nullopt : std::optional(copies_.back().number);
  }
  /// False when the block wants no more.
  bool handOver(const StoredRowBlock& block) const {
    std::vector<StoredView> views;
    return std::ranges::all_of(copies_, [&](const Copy& copy) {
      views.clear();
      for (const auto& value : copy.values) views.push_back(storedViewOf(value));
      return block({copy.number, views});
    });
  }

 private:
  struct Copy {
    int64_t number = 0;
    std::vector<StoredValue> values;
  };
  std::vector<Copy> copies_;
  std::size_t octets_ = 0;
};

}  // namespace

StoreReader::StoreReader(std::shared_ptr<const NSManagedObjectModel> model, SQLiteReadConnection connection)
    : model_(std::move(model)), connection_(std::make_unique<SQLiteReadConnection>(std::move(connection))) {}

StoreReader::~StoreReader() = default;

Result<std::unique_ptr<StoreReader>> StoreReader::open(std::shared_ptr<const NSManagedObjectModel> model,
                                                       const std::filesystem::path& file) {
  std::unique_ptr<StoreReader> reader;
  const auto opened = resultOf([&] { reader.reset(new StoreReader(model, readStoreFile(model, file))); });
  if (!opened) return opened.error();
  return reader;
}

void StoreReader::readThrough(const NSEntityDescription& entity, int64_t after, int64_t last,
                              const StoredRowBlock& block) {
  const EntityTable table(entity);
  CopiedRows rows;
  while (after < last) {
    connection_->atOneMoment([&](SQLiteDatabase& database) {
      rows.clear();
      auto statement = database.prepare(table.select(" WHERE rowid > ?1 AND rowid <= ?2 ORDER BY rowid"));
      statement.bind(1, after);
      statement.bind(2, last);
      table.readRows(statement, [&](const StoredRow& row) { return rows.add(row); });
    });
    if (!rows.last() || !rows.handOver(block)) return;
    after = *rows.last();
  }
}

Result<uint64_t> StoreReader::count(const NSEntityDescription& entity) {
  uint64_t count = 0;
  const auto read = [&](SQLiteDatabase& database) {
    count = static_cast<uint64_t>(database.integer(EntityTable(entity).count()).value_or(0));
  };
  if (const auto done = resultOf([&] { connection_->atOneMoment(read); }); !done) return done.error();
  return count;
}

Result<int64_t> StoreReader::lastRow(const NSEntityDescription& entity) {
  int64_t number = 0;
  // An empty table's last row is absent, which reads as 0.
  const auto read = [&](SQLiteDatabase& database) {
    number = database.integer(EntityTable(entity).lastRow()).value_or(0);
  };
  if (const auto done = resultOf([&] { connection_->atOneMoment(read); }); !done) return done.error();
  return number;
}

Result<> StoreReader::rowsAfter(const NSEntityDescription& entity, int64_t number,
                                const StoredRowBlock& block) {
  const auto last = lastRow(entity);
  if (!last) return last.error();
  return resultOf([&] { readThrough(entity, number, *last, block); });
}

Result<std::vector<std::string>> StoreReader::check() {
  std::vector<std::string> damages;
  const auto look = [&](SQLiteDatabase& database) { damages = damagesOf(database); };
  if (const auto done = resultOf([&] { connection_->atOneMoment(look); }); !done) return done.error();
  return damages;
}

Result<> StoreReader::copyTo(const std::filesystem::path& file) {
  return resultOf(
      [&] { connection_->atOneMoment([&](SQLiteDatabase& database) { database.copyTo(file); }); });
}

Result<> StoreReader::lastRows(const NSEntityDescription& entity, uint64_t limit,
                               const StoredRowBlock& block) {
  constexpr uint64_t most = std::numeric_limits<int64_t>::max();
  int64_t first = 0;
  int64_t last = 0;
  const auto find = [&](SQLiteDatabase& database) {
    auto statement = database.prepare(EntityTable(entity).newest());
    statement.bind(1, static_cast<int64_t>(std::min(limit, most)));
    statement.step();
    first = statement.integerAt(0);
    last = statement.integerAt(1);
  };
  return resultOf([&] {
    connection_->atOneMoment(find);
    readThrough(entity, first - 1, last, block);
  });
}

}  // namespace platform
