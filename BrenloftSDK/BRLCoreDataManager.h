#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coredata/NSManagedObjectContext.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"

template <class Receiver>
struct BRLCoreDataManagerClassOperations;

/// Owns the process's one object store: "ServiceModel.sqlite" in the documents folder, with the entities
/// SensorLog and BRLUserDataModel of the resource "ServiceModel.momd".
///
/// The stack is built when the context is first asked for. A store that cannot be opened, and a save that
/// fails, end the process (std::abort); a handler of SIGABRT can tell why, see `Class::fatalProblem`. A save
/// waits for other processes as long as they write, and fails while less than 1 MB of the disk is free.
///
/// Power cuts: see platform::NSSQLiteSynchronousOption. The user default "StoreSynchronous" set to the text
/// "FULL" before the stack is built makes every save reach the disk; otherwise it is NORMAL.
///
/// Thread safety: every operation may be called from any thread.
class BRL_EXPORT BRLCoreDataManager {
 public:
  struct Class;
  using Objects = std::vector<std::shared_ptr<platform::NSManagedObject>>;
  /// In the documents folder; what SQLite puts beside it has names that begin with this one.
  static constexpr std::string_view kStoreFileName = "ServiceModel.sqlite";

  /// -[BRLCoreDataManager init]
  /// Sets the user default "CoredataCreateOnce" the first time; builds nothing.
  BRLCoreDataManager();
  virtual ~BRLCoreDataManager() = default;
  BRLCoreDataManager(const BRLCoreDataManager&) = delete;
  BRLCoreDataManager& operator=(const BRLCoreDataManager&) = delete;

  /// -[BRLCoreDataManager managedObjectContext]
  /// The context of the process belongs to the instance that was asked first; every other one has none.
  std::shared_ptr<platform::NSManagedObjectContext> managedObjectContext();
  /// -[BRLCoreDataManager managedObjectModel]
  /// Throws platform::NSInvalidArgumentException when the bundle lacks the model.
  std::shared_ptr<const platform::NSManagedObjectModel> managedObjectModel();
  /// -[BRLCoreDataManager persistentStoreCoordinator]
  std::shared_ptr<platform::NSPersistentStoreCoordinator> persistentStoreCoordinator();

  /// -[BRLCoreDataManager applicationDocumentsDirectory]
  std::filesystem::path applicationDocumentsDirectory() const;
  /// -[BRLCoreDataManager saveContext]
  /// Saves when there are changes; a failure ends the process.
  void saveContext();
  /// -[BRLCoreDataManager fetch:]
  /// All objects of an entity; nothing when they cannot be read.
  std::optional<Objects> fetch(std::string_view entityName);

 private:
  template <class Receiver>
  friend struct BRLCoreDataManagerClassOperations;
  static BRLCoreDataManager* sharedManagerOfClass(BRLCoreDataManager* (*allocInit)());
  void buildContext();

  mutable std::recursive_mutex mutex_;  // guards the model and the coordinator
  std::shared_ptr<const platform::NSManagedObjectModel> model_;
  std::shared_ptr<platform::NSPersistentStoreCoordinator> coordinator_;
  std::shared_ptr<platform::NSManagedObjectContext> context_;  // written once, before contextBuilt_
  std::atomic<bool> contextBuilt_{false};
};

/// The class operations as the receiving class answers them; `Receiver::Class` derives from this.
template <class Receiver>
struct BRLCoreDataManagerClassOperations {
  /// +[BRLCoreDataManager sharedManager]
  /// Made once, of the class that is asked first; lives to the end of the process.
  static BRLCoreDataManager* sharedManager() {
    return BRLCoreDataManager::sharedManagerOfClass([]() -> BRLCoreDataManager* { return new Receiver; });
  }
  /// +[BRLCoreDataManager sharedManagedObjectContext]
  static std::shared_ptr<platform::NSManagedObjectContext> sharedManagedObjectContext();
  /// +[BRLCoreDataManager save]
  /// Saves, with or without changes. A failure is ignored, and the changes stay pending.
  static void save() {
    if (auto context = sharedManagedObjectContext()) static_cast<void>(context->save());
  }
  /// +[BRLCoreDataManager insertNewObjectForEntityForName:]
  /// Throws platform::NSInvalidArgumentException for an unknown entity.
  static std::shared_ptr<platform::NSManagedObject> insertNewObjectForEntityForName(std::string_view name) {
    return platform::NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(
        name, sharedManagedObjectContext().get());
  }
};

struct BRLCoreDataManager::Class : BRLCoreDataManagerClassOperations<BRLCoreDataManager> {
  /// Tries to open the store of the installed platform, and closes it again. Makes it where there is none.
  /// Returns why it cannot be used ("FILE: reason"), or nothing. Never ends the process.
  BRL_EXPORT static std::optional<platform::Error> storeProblem();
  /// Why the process is being ended: "FILE: reason", set right before std::abort; "" as long as the store is
  /// not to blame. Lives to the end of the process. Made for handlers of SIGABRT: takes no lock and no
  /// memory.
  BRL_EXPORT static const char* fatalProblem() noexcept;
  /// `sink` gets a line when a save waits for another process: one for each wait of more than a second.
  /// Without a sink the line goes to the log. Set it before the store is used. It is called under the
  /// context's lock, so it must not call the library.
  BRL_EXPORT static void setTellWaiting(platform::LogSink sink);
  /// Where the store of the installed platform is.
  BRL_EXPORT static std::filesystem::path storeFile();
  /// The model of the installed platform's bundle, loaded anew. Throws platform::NSInvalidArgumentException
  /// when the bundle lacks it.
  BRL_EXPORT static std::shared_ptr<const platform::NSManagedObjectModel> serviceModel();
};

template <class Receiver>
std::shared_ptr<platform::NSManagedObjectContext>
BRLCoreDataManagerClassOperations<Receiver>::sharedManagedObjectContext() {
  return BRLCoreDataManager::Class::sharedManager()->managedObjectContext();
}
