#include "platform/coredata/NSManagedObjectContext.h"

#include <string>
#include <utility>

#include "platform/coredata/ObjectRegistry.h"
#include "platform/coredata/SQLiteStore.h"

namespace platform {

NSManagedObjectContext::NSManagedObjectContext() : registry_(std::make_shared<ObjectRegistry>()) {}

NSManagedObjectContext::~NSManagedObjectContext() {
  const auto lock = registry_->lock();
  registry_->abandon();
}

void NSManagedObjectContext::setPersistentStoreCoordinator(
    std::shared_ptr<NSPersistentStoreCoordinator> coordinator) {
  const auto lock = registry_->lock();
  if (coordinator_ || !coordinator)
    throw NSInvalidArgumentException("a context has one coordinator for good");
  registry_->setModel(coordinator->managedObjectModel());
  coordinator_ = std::move(coordinator);
}

void NSManagedObjectContext::performBlockAndWait(const std::function<void()>& block) {
  const auto lock = registry_->lock();
  block();
}

bool NSManagedObjectContext::hasChanges() const {
  const auto lock = registry_->lock();
  return registry_->changes() != 0;
}

uint64_t NSManagedObjectContext::saveCount() const {
  const auto lock = registry_->lock();
  return registry_->saveCount;
}

Result<SQLiteStore*> NSManagedObjectContext::store() const {
  SQLiteStore* store = coordinator_ ? coordinator_->store() : nullptr;
  if (store == nullptr) return Error{.text = "the context has no store"};
  return store;
}

Result<> NSManagedObjectContext::save() {
  const auto lock = registry_->lock();
  ++registry_->saveCount;
  if (registry_->changes() == 0) return {};
  const auto found = this->store();
  if (!found) return found.error();
  SQLiteStore* store = *found;
  const bool hasDeletedAll = registry_->hasDeletedAll();
  const bool hasDeletions = registry_->hasDeletions();
  std::vector<int64_t> newRows;
  const auto write = [&] {
    if (!hasDeletions) store->requireRoom();
    registry_->deleteMost(*store);
    store->write(registry_->isSingleStatement(), [&] { newRows = registry_->writeTo(*store); });
  };
  if (const auto written = resultOf(write); !written) return written;
  registry_->didSave(newRows);
  if (hasDeletedAll)
    store->giveSpaceBack();
  else if (hasDeletions)
    store->giveSomeSpaceBack();
  return {};
}

Result<> NSManagedObjectContext::run(
    const NSFetchRequest& request,
    const std::function<void(SQLiteStore&, const FetchQuery&)>& operation) const {
  const auto store = this->store();
  if (!store) return store.error();
  const auto query = FetchQuery::make(*registry_->model(), request);
  if (!query) return query.error();
  return resultOf([&] { operation(**store, *query); });
}

Result<std::vector<std::shared_ptr<NSManagedObject>>> NSManagedObjectContext::executeFetchRequest_error(
    const NSFetchRequest& request) {
  const auto lock = registry_->lock();
  std::vector<std::shared_ptr<NSManagedObject>> objects;
  const auto done = run(request, [&](SQLiteStore& store, const FetchQuery& query) {
    const auto addRow = [&](const StoredRow& row) {
      objects.push_back(registry_->objectFor(query.entity, row));
      return true;
    };
    const auto addObject = [&](const ObjectRegistry::Object& object, const auto&) {
      objects.push_back(object);
      return true;
    };
    registry_->walk(store, query, addRow, addObject);
  });
  if (!done) return done.error();
  return objects;
}

Result<uint64_t> NSManagedObjectContext::countForFetchRequest_error(const NSFetchRequest& request) {
  const auto lock = registry_->lock();
  uint64_t count = 0;
  const auto done = run(request, [&](SQLiteStore& store, const FetchQuery& query) {
    const auto& entity = registry_->entity(query.entity);
    if (!query.predicate && query.limit == 0 && entity.deleted.empty()) {
      count = store.count(query.entity, entity.deletedThrough) + entity.inserted.size();
      return;
    }
    const auto add = [&](const auto&...) { return ++count, true; };
    registry_->walk(store, query, add, add);
  });
  if (!done) return done.error();
  return count;
}

Result<> NSManagedObjectContext::enumerateRows(const NSFetchRequest& request, const StoredRowBlock& block) {
  const auto lock = registry_->lock();
  std::vector<StoredView> views;
  const auto visitObject = [&](const ObjectRegistry::Object&, const std::vector<StoredValue>& values) {
    views.clear();
    for (const auto& value : values) views.push_back(storedViewOf(value));
    return block({0, views});
  };
  return run(request, [&](SQLiteStore& store, const FetchQuery& query) {
    registry_->walk(store, query, block, visitObject);
  });
}

void NSManagedObjectContext::deleteObject(const std::shared_ptr<NSManagedObject>& object) {
  const auto lock = registry_->lock();
  registry_->deleteObject(object);
}

Result<bool> NSManagedObjectContext::deleteAllObjects(std::string_view entityName) {
  const auto lock = registry_->lock();
  bool any = false;
  const auto request = NSFetchRequest::fetchRequestWithEntityName(entityName);
  const auto done = run(request, [&](SQLiteStore& store, const FetchQuery& query) {
    const auto& entity = registry_->entity(query.entity);
    auto lastRow = store.lastRow(query.entity);
    // Rows that are deleted already count no more.
    if (lastRow && *lastRow <= entity.deletedThrough) lastRow.reset();
    if (entity.deleted.empty()) {
      any = lastRow || !entity.inserted.empty();
    } else {
      const auto found = [&](const auto&...) { return any = true, false; };
      registry_->walk(store, query, found, found);
    }
    registry_->deleteAll(query.entity, lastRow);
  });
  if (!done) return done.error();
  return any;
}

std::shared_ptr<NSManagedObject> NSManagedObjectContext::insertNewObject(std::string_view entityName) {
  const auto lock = registry_->lock();
  const auto* model = registry_->model();
  const auto* entity = model != nullptr ? model->entityNamed(entityName) : nullptr;
  if (entity == nullptr) throw NSInvalidArgumentException("no entity named " + std::string(entityName));
  return registry_->insert(static_cast<std::size_t>(entity - model->entities().data()));
}

}  // namespace platform
