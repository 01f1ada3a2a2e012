#include "platform/coredata/ObjectRegistry.h"

#include <algorithm>
#include <utility>

namespace platform {

void ObjectRegistry::setModel(std::shared_ptr<const NSManagedObjectModel> model) {
  model_ = std::move(model);
  entities_.resize(model_->entities().size());
}

std::size_t ObjectRegistry::changes() const {
  std::size_t changes = 0;
  for (const auto& entity : entities_) changes += entity.changes();
  return changes;
}

bool ObjectRegistry::isSingleStatement() const {
  return changes() == 1 && !hasDeletions();
}

bool ObjectRegistry::hasDeletions() const {
  return std::ranges::any_of(entities_, &Entity::hasDeletions);
}

// Letting go of an object may take it out of `live`, so whoever walks that holds all of them meanwhile.
std::vector<ObjectRegistry::Object> ObjectRegistry::heldObjects(const Entity& entity) {
  std::vector<Object> objects;
  for (const auto& [number, held] : entity.live) {
    if (Object object = held.lock()) objects.push_back(std::move(object));
  }
  return objects;
}

std::size_t ObjectRegistry::indexOf(const NSManagedObject& object) const {
  return static_cast<std::size_t>(object.entity_ - model_->entities().data());
}

ObjectRegistry::Object ObjectRegistry::insert(std::size_t index) {
  const NSEntityDescription& description = model_->entities()[index];
  Object object = description.makeObject();
  object->entity_ = &description;
  object->registry_ = shared_from_this();
  object->values_.resize(description.attributes().size());
  object->state_ = State::Inserted;
  object->number_ = ++insertions_;
  entities_[index].inserted.emplace_hint(entities_[index].inserted.end(), insertions_, object);
  return object;
}

ObjectRegistry::Object ObjectRegistry::objectFor(std::size_t index, const StoredRow& row) {
  auto& slot = entities_[index].live[row.number];
  Object object = slot.lock();
  if (object && object->state_ != State::Clean) return object;
  if (!object) {
    const NSEntityDescription& description = model_->entities()[index];
    object = description.makeObject();
    object->entity_ = &description;
    object->registry_ = shared_from_this();
    object->state_ = State::Clean;
    object->number_ = row.number;
    object->values_.resize(row.values.size());
    slot = object;
  }
  for (std::size_t i = 0; i < row.values.size(); ++i) object->values_[i] = valueOf(row.values[i]);
  return object;
}

void ObjectRegistry::deleteObject(const Object& object) {
  if (!object || object->registry_.get() != this) return;
  Entity& entity = entities_[indexOf(*object)];
  if (object->state_ == State::Inserted) {
    entity.inserted.erase(object->number_);
    object->state_ = State::Detached;
  } else if (object->state_ == State::Clean || object->state_ == State::Updated) {
    entity.updated.erase(object->number_);
    entity.deleted.emplace(object->number_, object);
    object->state_ = State::Deleted;
  }
}

void ObjectRegistry::deleteAll(std::size_t index, std::optional<int64_t> lastRow) {
  Entity& entity = entities_[index];
  for (auto& [order, object] : entity.inserted) object->state_ = State::Detached;
  entity.inserted.clear();
  if (!lastRow) return;
  for (const Object& object : heldObjects(entity)) object->state_ = State::Deleted;
  entity.updated.clear();
  entity.deleted.clear();
  entity.deletedThrough = *lastRow;
}

void ObjectRegistry::noteChange(NSManagedObject& object) {
  if (object.state_ != State::Clean) return;
  object.state_ = State::Updated;
  entities_[indexOf(object)].updated.emplace(object.number_, object.shared_from_this());
}

void ObjectRegistry::forget(const NSManagedObject& object) {
  if (object.state_ == State::Detached || object.state_ == State::Inserted) return;
  auto& live = entities_[indexOf(object)].live;
  const auto it = live.find(object.number_);
  // Another thread may have fetched the row again already.
  if (it != live.end() && it->second.expired()) live.erase(it);
}

void ObjectRegistry::walk(SQLiteStore& store, const FetchQuery& query, const StoredRowBlock& rowBlock,
                          const ObjectBlock& objectBlock) {
  const Entity& entity = entities_[query.entity];
  std::size_t visited = 0;
  const auto goesOn = [&](bool isMoreWanted) { return ++visited != query.limit && isMoreWanted; };
  const auto visit = [&](const Object& object) {
    const auto& values = object->values_;
    return !query.matches(storedViewOf(values[query.attribute])) || goesOn(objectBlock(object, values));
  };
  // What is stored may no longer be what a changed object holds, so then the predicate is looked at here.
  const bool filterHere = query.predicate && !entity.updated.empty();
  bool more = true;
  const auto visitRow = [&](const StoredRow& row) {
    if (entity.deleted.contains(row.number)) return true;
    const auto changed = entity.updated.find(row.number);
    if (changed != entity.updated.end())
      more = visit(changed->second);
    else if (!filterHere || query.matches(row.values[query.attribute]))
      more = goesOn(rowBlock(row));
    return more;
  };
  store.eachRow(query.entity, entity.deletedThrough, filterHere ? std::nullopt : query.predicate, visitRow);
  for (auto it = entity.inserted.begin(); more && it != entity.inserted.end(); ++it) more = visit(it->second);
}

bool ObjectRegistry::hasDeletedAll() const {
  return std::ranges::any_of(entities_, &Entity::isDeletedThrough);
}

void ObjectRegistry::deleteMost(SQLiteStore& store) {
  for (std::size_t i = 0; i < entities_.size(); ++i) {
    if (entities_[i].isDeletedThrough()) store.deleteMostRowsThrough(i, entities_[i].deletedThrough);
  }
}

std::vector<int64_t> ObjectRegistry::writeTo(SQLiteStore& store) {
  std::vector<int64_t> newRows;
  for (std::size_t i = 0; i < entities_.size(); ++i) {
    const Entity& entity = entities_[i];
    if (entity.hasDeletions()) store.noteLastRow(i);
    if (entity.isDeletedThrough()) store.deleteRowsThrough(i, entity.deletedThrough);
    for (const auto& [number, object] : entity.deleted) store.deleteRow(i, number);
    for (const auto& [number, object] : entity.updated) store.updateRow(i, number, object->values_);
    for (const auto& [order, object] : entity.inserted) {
      newRows.push_back(store.insertRow(i, object->values_));
    }
  }
  return newRows;
}

void ObjectRegistry::finishDeletions(Entity& entity) {
  for (auto& [number, object] : entity.deleted) {
    object->state_ = State::Detached;
    entity.live.erase(number);
  }
  entity.deleted.clear();
  if (!entity.isDeletedThrough()) return;
  for (const Object& object : heldObjects(entity)) {
    if (object->number_ > entity.deletedThrough) continue;  // another process has added it since
    object->state_ = State::Detached;
    entity.live.erase(object->number_);
  }
  entity.deletedThrough = SQLiteStore::kBeforeAll;
}

void ObjectRegistry::didSave(const std::vector<int64_t>& newRows) {
  auto row = newRows.begin();
  for (Entity& entity : entities_) {
    finishDeletions(entity);
    for (auto& [number, object] : entity.updated) object->state_ = State::Clean;
    entity.updated.clear();
    for (auto& [order, object] : entity.inserted) {
      object->state_ = State::Clean;
      object->number_ = *row++;
      entity.live[object->number_] = object;
    }
    entity.inserted.clear();
  }
}

void ObjectRegistry::abandon() {
  for (Entity& entity : entities_) {
    for (auto& [order, object] : entity.inserted) object->state_ = State::Detached;
    for (const Object& object : heldObjects(entity)) object->state_ = State::Detached;
    entity = {};
  }
}

}  // namespace platform
