#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/coredata/SQLiteDatabase.h"
#include "platform/coredata/SQLiteFile.h"

namespace platform {

/// The SQL of one entity's table, and how its rows are read.
class EntityTable {
 public:
  explicit EntityTable(const NSEntityDescription& entity);

  std::string create() const;
  std::string insert() const;
  std::string update() const;
  std::string remove() const { return "DELETE FROM " + table_ + " WHERE rowid = ?1"; }
  std::string removeThrough() const { return "DELETE FROM " + table_ + " WHERE rowid <= ?1"; }
  /// The newest ?2 rows among those up to ?1; none when there are no more than that.
  std::string removeNewest() const;
  std::string removeAll() const { return "DELETE FROM " + table_; }
  /// Notes the newest row's number before rows go, so that no later row gets it.
  std::string noteLastRow() const;
  std::string count() const { return "SELECT count(*) FROM " + table_; }
  std::string lastRow() const { return "SELECT max(rowid) FROM " + table_; }
  /// The row's number and every attribute, in the order of the rows; `condition` begins with a space.
  std::string select(std::string_view condition) const;
  /// The numbers of the first and the last of the newest ?1 rows.
  std::string newest() const;

  /// Hands over the rows of a select until the block ends the walk.
  void readRows(SQLiteStatement& statement, const StoredRowBlock& block) const;
  /// A column's name as SQL.
  static std::string quoted(std::string_view name);

 private:
  std::string columns(std::string_view between) const;

  const std::vector<NSAttributeDescription>& attributes_;
  std::string table_;
  std::string lastRowKey_;
};

struct SQLiteStoreOptions {
  bool create = true;
  bool synchronousFull = false;
  bool ownerOnly = false;  ///< a file that is made, and what SQLite puts beside it
};

/// Opens a model's store file; see NSPersistentStoreCoordinator for what does not open and for what is in the
/// file. Throws SQLiteFailure, in words for the operator.
SQLiteDatabase openStoreFile(const NSManagedObjectModel& model, const std::filesystem::path& file,
                             SQLiteStoreOptions options);

/// Reads one, also where it may not be written.
SQLiteReadConnection readStoreFile(std::shared_ptr<const NSManagedObjectModel> model,
                                   const std::filesystem::path& file);

}  // namespace platform
