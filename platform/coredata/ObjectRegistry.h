#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/coredata/FetchQuery.h"
#include "platform/coredata/NSManagedObject.h"
#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/coredata/SQLiteStore.h"

namespace platform {

/// The objects of one context: which are held, and what the next save has to write. Shared by the context and
/// its objects, which may live longer.
///
/// Everything but `lock` is to be used under the lock.
class ObjectRegistry : public std::enable_shared_from_this<ObjectRegistry> {
 public:
  using Object = std::shared_ptr<NSManagedObject>;
  using Lock = std::unique_lock<std::recursive_mutex>;

  struct Entity {
    /// By the order of insertion.
    std::map<int64_t, Object> inserted;
    /// By the row's number.
    std::map<int64_t, Object> updated;
    std::map<int64_t, Object> deleted;
    /// Every row up to this one is deleted as well, whether there is an object for it or not.
    int64_t deletedThrough = SQLiteStore::kBeforeAll;
    /// The one object of a row that somebody holds.
    std::unordered_map<int64_t, std::weak_ptr<NSManagedObject>> live;

    bool isDeletedThrough() const { return deletedThrough != SQLiteStore::kBeforeAll; }
    bool hasDeletions() const { return isDeletedThrough() || !deleted.empty(); }
    std::size_t changes() const {
      return inserted.size() + updated.size() + deleted.size() + (isDeletedThrough() ? 1U : 0U);
    }
  };

  Lock lock() { return Lock(mutex_); }

  void setModel(std::shared_ptr<const NSManagedObjectModel> model);
  const NSManagedObjectModel* model() const { return model_.get(); }
  Entity& entity(std::size_t index) { return entities_[index]; }
  std::size_t changes() const;
  /// One statement writes all changes.
  bool isSingleStatement() const;

  Object insert(std::size_t index);
  /// The object of a row; its values follow the row unless it has unsaved changes.
  Object objectFor(std::size_t index, const StoredRow& row);
  void deleteObject(const Object& object);
  /// All objects of the entity, and all rows up to a number, if any.
  void deleteAll(std::size_t index, std::optional<int64_t> lastRow);
  void noteChange(NSManagedObject& object);
  /// The last holder of an object has let go of it.
  void forget(const NSManagedObject& object);

  /// Takes an object with unsaved changes and its values; false ends the walk.
  using ObjectBlock = std::function<bool(const Object& object, const std::vector<StoredValue>& values)>;
  /// Walks what a fetch returns: rows in their order, then new objects.
  void walk(SQLiteStore& store, const FetchQuery& query, const StoredRowBlock& rowBlock,
            const ObjectBlock& objectBlock);

  bool hasDeletions() const;
  bool hasDeletedAll() const;
  /// Takes the bulk of the deletions of all objects out of the way of `writeTo`.
  void deleteMost(SQLiteStore& store);
  /// Writes all changes; returns the numbers of the new rows for `didSave`.
  std::vector<int64_t> writeTo(SQLiteStore& store);
  void didSave(const std::vector<int64_t>& newRows);
  /// Drops all changes; objects that are held no longer belong to anything.
  void abandon();

  uint64_t saveCount = 0;

 private:
  using State = NSManagedObject::State;
  std::size_t indexOf(const NSManagedObject& object) const;
  static std::vector<Object> heldObjects(const Entity& entity);
  static void finishDeletions(Entity& entity);

  std::recursive_mutex mutex_;
  std::shared_ptr<const NSManagedObjectModel> model_;
  std::vector<Entity> entities_;
  int64_t insertions_ = 0;
};

}  // namespace platform
