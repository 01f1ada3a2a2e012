#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/coredata/StoredValue.h"
#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"

namespace platform {

class SQLiteReadConnection;

/// Reads the saved rows of a store file on a connection of its own, beside whoever else uses the file. Never
/// changes rows, though what a killed process left in the file's log may move into the file; never makes a
/// store. Where it may only read, it does.
///
/// Rows are read in steps and handed over in between, so that a slow block holds up nobody: those that are
/// added after the operation began do not come, those that are deleted meanwhile come or not.
///
/// Threads: one at a time. Blocks run with no lock held.
class BRL_EXPORT StoreReader {
 public:
  /// Fails when the file does not open, for the reasons of NSPersistentStoreCoordinator or because there is
  /// none.
  static Result<std::unique_ptr<StoreReader>> open(std::shared_ptr<const NSManagedObjectModel> model,
                                                   const std::filesystem::path& file);
  ~StoreReader();
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  const NSManagedObjectModel& model() const { return *model_; }
  Result<uint64_t> count(const NSEntityDescription& entity);
  /// The number of the newest row, 0 without one.
  Result<int64_t> lastRow(const NSEntityDescription& entity);
  /// Hands over the rows after a number, in their order.
  Result<> rowsAfter(const NSEntityDescription& entity, int64_t number, const StoredRowBlock& block);
  /// Hands over the newest rows, in their order.
  Result<> lastRows(const NSEntityDescription& entity, uint64_t limit, const StoredRowBlock& block);
  /// What is wrong with the file, in lines; none: nothing. Holds one snapshot meanwhile, as `copyTo` does.
  Result<std::vector<std::string>> check();
  /// Copies the whole store to a file that is not there yet.
  Result<> copyTo(const std::filesystem::path& file);

 private:
  StoreReader(std::shared_ptr<const NSManagedObjectModel> model, SQLiteReadConnection connection);
  void readThrough(const NSEntityDescription& entity, int64_t after, int64_t last,
                   const StoredRowBlock& block);

  const std::shared_ptr<const NSManagedObjectModel> model_;
  const std::unique_ptr<SQLiteReadConnection> connection_;
};

}  // namespace platform
