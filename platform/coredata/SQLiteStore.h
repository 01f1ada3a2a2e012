#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "platform/coredata/NSPredicate.h"
#include "platform/coredata/SQLiteStoreFile.h"

namespace platform {

/// The rows of a store. Entities are named by their place in the model. Every operation throws SQLiteFailure.
/// Not locked: the context serialises.
class SQLiteStore {
 public:
  /// Before every row.
  static constexpr int64_t kBeforeAll = std::numeric_limits<int64_t>::min();

  /// The model must live as long as the store.
  SQLiteStore(const NSManagedObjectModel& model, const std::filesystem::path& file,
              SQLiteStoreOptions options);

  /// Hands over the rows after a number that the predicate lets through, in order.
  void eachRow(std::size_t entity, int64_t after, const std::optional<NSPredicate>& predicate,
               const StoredRowBlock& block);
  uint64_t count(std::size_t entity, int64_t after);
  /// Nothing when there is no row.
  std::optional<int64_t> lastRow(std::size_t entity);

  /// Runs changes as one transaction. A single statement is one by itself. Fails, though it is written, when
  /// the file is no longer the one that its name stands for: what is written would go nowhere.
  void write(bool singleStatement, const std::function<void()>& changes);
  /// Returns the row's number, which is above that of every row that is or was there.
  int64_t insertRow(std::size_t entity, std::span<const StoredValue> values);
  void updateRow(std::size_t entity, int64_t number, std::span<const StoredValue> values);
  /// Call before the first row of a transaction is deleted.
  void noteLastRow(std::size_t entity) { tables_[entity].noteLast.run(); }
  void deleteRow(std::size_t entity, int64_t number);
  void deleteRowsThrough(std::size_t entity, int64_t number);
  /// Fails as a full disk does while there is still room to delete something. Call before changes without
  /// deletions.
  void requireRoom() const;
  /// Deletes rows up to a number, the newest first, until few are left for `deleteRowsThrough`. In small
  /// transactions, so that others can write in between, and so that a full disk has room for one.
  void deleteMostRowsThrough(std::size_t entity, int64_t number);
  /// Makes the file smaller by what deleted rows have left, in small transactions, as far as there is room to
  /// do that and others allow it.
  void giveSpaceBack();
  /// The first of those transactions alone, for deletions of a few rows.
  void giveSomeSpaceBack();

  /// Called once for each wait for another process that takes longer than a second.
  void setOnWaiting(std::function<void()> onWaiting) { database_.setOnWaiting(std::move(onWaiting)); }

 private:
  struct Table {
    Table(SQLiteDatabase& database, const NSEntityDescription& entity);
    EntityTable sql;
    SQLiteStatement insert;
    SQLiteStatement update;
    SQLiteStatement noteLast;
    SQLiteStatement remove;
    SQLiteStatement removeThrough;
    SQLiteStatement removeNewest;
    SQLiteStatement removeAll;
  };

  bool deleteNewestRows(std::size_t entity, int64_t number, int64_t count);
  bool vacuumStep();

  SQLiteDatabase database_;
  std::vector<Table> tables_;
};

}  // namespace platform
