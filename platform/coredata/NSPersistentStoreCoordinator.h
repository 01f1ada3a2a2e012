#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/coredata/NSInvalidArgumentException.h"
#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

namespace platform {

class SQLiteStore;

inline constexpr std::string_view NSSQLiteStoreType = "SQLite";

/// Store option: how hard a save holds against a power cut, "NORMAL" (the default) or "FULL".
///
/// With either, what a save wrote survives the death of the process, and the file is never damaged. NORMAL
/// flushes to the disk only now and then, so a power cut or a crash of the system can cost the saves of the
/// last moments (up to about 4 MB of log). FULL flushes at every save and costs nothing, at the price of one
/// disk flush per save.
inline constexpr std::string_view NSSQLiteSynchronousOption = "NSSQLiteSynchronousOption";

/// Store option: when true, a new file is readable by its owner alone. Otherwise the umask decides.
inline constexpr std::string_view NSSQLiteOwnerOnlyOption = "NSSQLiteOwnerOnlyOption";

/// How many octets the values of one object may have in all. A save of more fails.
inline constexpr std::size_t NSSQLiteMaximumObjectSize = 999'999'900;

/// Keeps a model's objects in one SQLite file.
///
/// The file: one table per entity, one column per attribute; integers as INTEGER (unsigned ones by their bit
/// pattern), texts as TEXT, octets as BLOB, dates as REAL seconds since 1970. The header's application_id
/// says whose file it is, its user_version and the table `NSStoreMetadata` which model it follows.
/// Write-ahead logging; a second process may read and write the file meanwhile, each waits for the other as
/// long as that writes, and a minute longer. Rows are told apart by SQLite's own row numbers: no VACUUM while
/// the store is in use.
///
/// Threads: set up on one thread; afterwards it is used through one context.
class BRL_EXPORT NSPersistentStoreCoordinator {
 public:
  /// -[NSPersistentStoreCoordinator initWithManagedObjectModel:]
  explicit NSPersistentStoreCoordinator(std::shared_ptr<const NSManagedObjectModel> model);
  ~NSPersistentStoreCoordinator();
  NSPersistentStoreCoordinator(const NSPersistentStoreCoordinator&) = delete;
  NSPersistentStoreCoordinator& operator=(const NSPersistentStoreCoordinator&) = delete;

  /// -[NSPersistentStoreCoordinator addPersistentStoreWithType:configuration:URL:options:error:]
  /// Opens the file, or makes it where there is none (or nothing in it, or zeros). A process that dies
  /// meanwhile leaves what the next one finishes or begins anew. A file of another model, of
  /// another application, one with triggers or views, a damaged one or no database at all does not open and
  /// is left as it is.
  Result<> addPersistentStoreWithType_configuration_URL_options_error(
      std::string_view type, std::optional<std::string> configuration, const std::filesystem::path& url,
      const Dictionary* options);

  /// Once there is a store: the block is called, with the context's lock held, once for each wait for another
  /// process that takes longer than a second.
  void setTellWaiting(std::function<void()> tell);

  const std::shared_ptr<const NSManagedObjectModel>& managedObjectModel() const { return model_; }
  /// The open store; nothing before one was added.
  SQLiteStore* store() const { return store_.get(); }

 private:
  std::shared_ptr<const NSManagedObjectModel> model_;
  std::unique_ptr<SQLiteStore> store_;
};

}  // namespace platform
