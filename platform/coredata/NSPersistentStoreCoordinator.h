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
/// last moments (up to about 4 MB of log). FULL flushes at every save, so that a power cut costs none; each
/// save then waits for the disk.
inline constexpr std::string_view NSSQLiteSynchronousOption = "NSSQLiteSynchronousOption";

/// Store option: when true, a new file is readable by its owner alone. Otherwise the umask decides.
inline constexpr std::string_view NSSQLiteOwnerOnlyOption = "NSSQLiteOwnerOnlyOption";

/// The most octets that the values of one object may have together. A save of more fails.
inline constexpr std::size_t NSSQLiteMaximumObjectSize = 999'999'900;

/// Keeps a model's objects in one SQLite file.
///
/// The file: one table per entity, one column per attribute; integers as INTEGER (unsigned ones by their bit
/// pattern), texts as TEXT, octets as BLOB, dates as REAL seconds since 1970. The header's application_id
/// says whose file it is, its user_version and the table `NSStoreMetadata` which model it follows.
/// Write-ahead logging: a second process may read and write the file meanwhile. Each waits for the other as
/// long as that writes, and a minute longer. SQLite's own row numbers tell rows apart: no VACUUM while the
/// store is in use.
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
  /// Opens the file. Makes it where there is none, and where it is empty or all zeros. When the process dies
  /// meanwhile, the next one finishes that or begins anew. Some files do not open and are left as they are:
  /// one of another model or another application, one with triggers or views, a damaged one, and a file that
  /// is not a database.
  Result<> addPersistentStoreWithType_configuration_URL_options_error(
      std::string_view type, std::optional<std::string> configuration, const std::filesystem::path& url,
      const Dictionary* options);

  /// Call it once there is a store. The block is called, with the context's lock held, once for each wait for
  /// another process that takes longer than a second.
  void setTellWaiting(std::function<void()> tell);

  const std::shared_ptr<const NSManagedObjectModel>& managedObjectModel() const { return model_; }
  /// The open store; nothing before one was added.
  SQLiteStore* store() const { return store_.get(); }

 private:
  std::shared_ptr<const NSManagedObjectModel> model_;
  std::unique_ptr<SQLiteStore> store_;
};

}  // namespace platform
