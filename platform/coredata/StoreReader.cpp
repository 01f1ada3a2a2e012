#include "platform/coredata/StoreReader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/coredata/SQLiteStoreFile.h"

namespace platform {

StoreReader::StoreReader(std::shared_ptr<const NSManagedObjectModel> model,
                         std::unique_ptr<SQLiteDatabase> database)
    : model_(std::move(model)), database_(std::move(database)) {}

StoreReader::~StoreReader() = default;

std::unique_ptr<StoreReader> StoreReader::open(std::shared_ptr<const NSManagedObjectModel> model,
                                               const std::filesystem::path& file, NSError* error) {
  std::unique_ptr<SQLiteDatabase> database;
  const bool opened = reportingTo(error, [&] {
    database = std::make_unique<SQLiteDatabase>(openStoreFile(*model, file, {.create = false}));
    database->execute("PRAGMA query_only = 1");
  });
  if (!opened) return nullptr;
  return std::unique_ptr<StoreReader>(new StoreReader(std::move(model), std::move(database)));
}

std::optional<uint64_t> StoreReader::count(const NSEntityDescription& entity, NSError* error) {
  std::optional<int64_t> count;
  reportingTo(error, [&] { count = database_->integer(EntityTable(entity).count()); });
  return count ? std::optional(static_cast<uint64_t>(*count)) : std::nullopt;
}

std::optional<int64_t> StoreReader::lastRow(const NSEntityDescription& entity, NSError* error) {
  std::optional<int64_t> number;
  // An empty table's last row is absent, which reads as 0.
  reportingTo(error, [&] { number = database_->integer(EntityTable(entity).lastRow()); });
  return number;
}

bool StoreReader::rowsAfter(const NSEntityDescription& entity, int64_t number, const StoredRowBlock& block,
                            NSError* error) {
  return reportingTo(error, [&] {
    const EntityTable table(entity);
    auto statement = database_->prepare(table.select(" WHERE rowid > ?1 ORDER BY rowid"));
    statement.bind(1, number);
    table.readRows(statement, block);
  });
}

bool StoreReader::lastRows(const NSEntityDescription& entity, uint64_t limit, const StoredRowBlock& block,
                           NSError* error) {
  return reportingTo(error, [&] {
    const EntityTable table(entity);
    auto statement = database_->prepare(table.selectLast());
    constexpr uint64_t most = std::numeric_limits<int64_t>::max();
    statement.bind(1, static_cast<int64_t>(std::min(limit, most)));
    table.readRows(statement, block);
  });
}

}  // namespace platform
