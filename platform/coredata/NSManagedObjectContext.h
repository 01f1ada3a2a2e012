#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/coredata/NSFetchRequest.h"
#include "platform/coredata/NSInvalidArgumentException.h"
#include "platform/coredata/NSManagedObject.h"
#include "platform/coredata/NSPersistentStoreCoordinator.h"
#include "platform/foundation/Error.h"

namespace platform {

struct FetchQuery;

/// The objects of a store and their unsaved changes. Fetches see pending inserts, changes and deletions;
/// objects come out in the order in which they went in.
///
/// Thread safety: every operation may be called from any thread. One recursive lock guards the context, its
/// objects and the store's connection; blocks given to `performBlockAndWait` and `enumerateRows` run under it
/// and must not wait for another thread.
class BRL_EXPORT NSManagedObjectContext {
 public:
  /// -[NSManagedObjectContext init]
  NSManagedObjectContext();
  /// Unsaved changes are dropped; objects that are still held keep their values.
  ~NSManagedObjectContext();
  NSManagedObjectContext(const NSManagedObjectContext&) = delete;
  NSManagedObjectContext& operator=(const NSManagedObjectContext&) = delete;

  /// -[NSManagedObjectContext setPersistentStoreCoordinator:], once, before any other use.
  void setPersistentStoreCoordinator(std::shared_ptr<NSPersistentStoreCoordinator> coordinator);
  const std::shared_ptr<NSPersistentStoreCoordinator>& persistentStoreCoordinator() const {
    return coordinator_;
  }

  /// -[NSManagedObjectContext performBlockAndWait:]
  /// Runs the block at once with the context to itself: no other thread inserts, reads or saves meanwhile.
  void performBlockAndWait(const std::function<void()>& block);

  /// -[NSManagedObjectContext hasChanges]
  bool hasChanges() const;
  /// -[NSManagedObjectContext save:]
  /// Writes every pending change in one transaction. When all of very many objects are deleted, most of them
  /// go before it, in steps that let other processes write in between. After a failure nothing else was
  /// written, and the changes stay pending. After a success the changes survive the death of the process.
  Result<> save();
  /// How often a save was asked for, with or without changes.
  uint64_t saveCount() const;

  /// -[NSManagedObjectContext executeFetchRequest:error:]
  Result<std::vector<std::shared_ptr<NSManagedObject>>> executeFetchRequest_error(
      const NSFetchRequest& request);
  /// -[NSManagedObjectContext countForFetchRequest:error:], without making objects.
  Result<uint64_t> countForFetchRequest_error(const NSFetchRequest& request);
  /// Hands over, row by row, what a fetch would return, without making objects. After a failure the rows
  /// before it were handed over.
  Result<> enumerateRows(const NSFetchRequest& request, const StoredRowBlock& block);

  /// -[NSManagedObjectContext deleteObject:]
  void deleteObject(const std::shared_ptr<NSManagedObject>& object);
  /// Marks as deleted everything that a fetch of the entity would return, without making objects. True when
  /// there was something.
  Result<bool> deleteAllObjects(std::string_view entityName);

 private:
  friend class NSEntityDescription;
  std::shared_ptr<NSManagedObject> insertNewObject(std::string_view entityName);
  Result<SQLiteStore*> store() const;
  Result<> run(const NSFetchRequest& request,
               const std::function<void(SQLiteStore&, const FetchQuery&)>& operation) const;

  std::shared_ptr<NSPersistentStoreCoordinator> coordinator_;
  std::shared_ptr<ObjectRegistry> registry_;
};

}  // namespace platform
