#include "platform/coredata/SQLiteStore.h"

#include <algorithm>

namespace platform {
namespace {

// So many hold the lock for less than a tenth of a second.
constexpr int64_t kMostDeletedAtOnce = 10'000;
constexpr int64_t kPagesPerStep = 1000;

int bindAll(SQLiteStatement& statement, std::span<const StoredValue> values) {
  int parameter = 0;
  for (const auto& value : values) statement.bind(++parameter, storedViewOf(value));
  return parameter;
}

StoredView argumentOf(const NSPredicate& predicate) {
  if (!predicate.argument()) return {};
  return std::string_view(*predicate.argument());
}

// What a deletion may need: the pages that are in the log only, and SQLite's index of it.
constexpr uint64_t kReserve = 1 << 20;

}  // namespace

SQLiteStore::Table::Table(SQLiteDatabase& database, const NSEntityDescription& entity)
    : sql(entity),
      insert(database.prepare(sql.insert())),
      update(database.prepare(sql.update())),
      noteLast(database.prepare(sql.noteLastRow())),
      remove(database.prepare(sql.remove())),
      removeThrough(database.prepare(sql.removeThrough())),
      removeNewest(database.prepare(sql.removeNewest())),
      removeAll(database.prepare(sql.removeAll())) {}

SQLiteStore::SQLiteStore(const NSManagedObjectModel& model, const std::filesystem::path& file,
                         SQLiteStoreOptions options)
    : database_(openStoreFile(model, file, options)) {
  for (const auto& entity : model.entities()) tables_.emplace_back(database_, entity);
}

void SQLiteStore::eachRow(std::size_t entity, int64_t after, const std::optional<NSPredicate>& predicate,
                          const StoredRowBlock& block) {
  std::string condition = " WHERE rowid > ?1";
  if (predicate) condition += " AND " + EntityTable::quoted(predicate->key()) + " IS ?2";
  const EntityTable& sql = tables_[entity].sql;
  auto statement = database_.prepare(sql.select(condition + " ORDER BY rowid"));
  statement.bind(1, after);
  if (predicate) statement.bind(2, argumentOf(*predicate));
  sql.readRows(statement, block);
}

uint64_t SQLiteStore::count(std::size_t entity, int64_t after) {
  const std::string all = tables_[entity].sql.count();
  // Without a condition SQLite counts by pages.
  auto statement = database_.prepare(after == kBeforeAll ? all : all + " WHERE rowid > ?1");
  if (after != kBeforeAll) statement.bind(1, after);
  statement.step();
  return static_cast<uint64_t>(statement.integerAt(0));
}

std::optional<int64_t> SQLiteStore::lastRow(std::size_t entity) {
  auto statement = database_.prepare(tables_[entity].sql.lastRow());
  statement.step();
  const auto view = statement.viewAt(0, NSAttributeType::Integer64);
  const auto* number = std::get_if<int64_t>(&view);
  return number != nullptr ? std::optional(*number) : std::nullopt;
}

void SQLiteStore::write(bool singleStatement, const std::function<void()>& changes) {
  if (singleStatement)
    changes();
  else
    database_.transaction(changes);
  requireInPlace(database_);
}

int64_t SQLiteStore::insertRow(std::size_t entity, std::span<const StoredValue> values) {
  SQLiteStatement& insert = tables_[entity].insert;
  bindAll(insert, values);
  insert.run();
  return database_.lastInsertedRow();
}

void SQLiteStore::updateRow(std::size_t entity, int64_t number, std::span<const StoredValue> values) {
  SQLiteStatement& update = tables_[entity].update;
  const int last = bindAll(update, values) + 1;
  update.bind(last, number);
  update.run();
}

void SQLiteStore::deleteRow(std::size_t entity, int64_t number) {
  tables_[entity].remove.bind(1, number);
  tables_[entity].remove.run();
}

void SQLiteStore::deleteRowsThrough(std::size_t entity, int64_t number) {
  Table& table = tables_[entity];
  // Emptying a table as a whole frees its pages without looking at the rows. Inside the transaction nobody
  // else adds one.
  if (lastRow(entity).value_or(number) <= number) {
    table.removeAll.run();
  } else {
    table.removeThrough.bind(1, number);
    table.removeThrough.run();
  }
}

void SQLiteStore::requireRoom() const {
  database_.requireRoom(kReserve);
}

bool SQLiteStore::deleteNewestRows(std::size_t entity, int64_t number, int64_t count) {
  bool any = false;
  write(false, [&] {
    noteLastRow(entity);
    SQLiteStatement& remove = tables_[entity].removeNewest;
    remove.bind(1, number);
    remove.bind(2, count);
    remove.run();
    any = database_.changedRows() != 0;
  });
  return any;
}

// The newest first, because they are at the file's end: what becomes free there is given back without moving
// other rows.
void SQLiteStore::deleteMostRowsThrough(std::size_t entity, int64_t number) {
  int64_t rows = kMostDeletedAtOnce;
  // As far as nobody reads in it, the log is then written from its beginning and needs no more of the disk.
  database_.moveLog();
  while (true) {
    try {
      if (!deleteNewestRows(entity, number, rows)) return;
      vacuumStep();
    } catch (const SQLiteFailure& failure) {
      if (!failure.isFull() || rows == 1) throw;
      // Emptied, the log has room again for a smaller step, and the file may have become shorter.
      database_.emptyLog();
      rows = std::max<int64_t>(rows / 8, 1);
    }
    BusyWait::letOthersGo();
  }
}

bool SQLiteStore::vacuumStep() {
  const auto before = database_.integer("PRAGMA freelist_count");
  if (before == 0) return false;
  database_.execute("PRAGMA incremental_vacuum(" + std::to_string(kPagesPerStep) + ")");
  // A store of an earlier version keeps its free pages.
  return database_.integer("PRAGMA freelist_count") < before;
}

void SQLiteStore::giveSomeSpaceBack() {
  try {
    vacuumStep();
  } catch (const SQLiteFailure&) {
    // As below.
  }
}

void SQLiteStore::giveSpaceBack() {
  try {
    while (vacuumStep()) BusyWait::letOthersGo();
    database_.moveLog();
  } catch (const SQLiteFailure&) {
    // The rows are deleted; the space goes back the next time.
  }
}

}  // namespace platform
