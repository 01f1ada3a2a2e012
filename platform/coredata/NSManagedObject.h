#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/coredata/NSEntityDescription.h"
#include "platform/coredata/StoredValue.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/Value.h"

namespace platform {

class ObjectRegistry;

/// One object of a context: a row of the store, or one that the next save makes.
///
/// A row is one object as long as somebody holds it. An object of a deleted row keeps its values; changing
/// them has no effect on the store. Objects are made by their context only.
///
/// Thread safety: every operation may be called from any thread; values are guarded by the context's lock.
class BRL_EXPORT NSManagedObject : public std::enable_shared_from_this<NSManagedObject> {
 public:
  NSManagedObject() = default;
  virtual ~NSManagedObject();
  NSManagedObject(const NSManagedObject&) = delete;
  NSManagedObject& operator=(const NSManagedObject&) = delete;

  const NSEntityDescription& entity() const { return *entity_; }

  /// -[NSManagedObject valueForKey:], nothing when the value is absent.
  /// Throws NSInvalidArgumentException for an unknown key.
  std::optional<Value> valueForKey(std::string_view key) const;
  /// -[NSManagedObject setValue:forKey:], nothing or the null marker makes the value absent.
  /// Throws NSInvalidArgumentException for an unknown key or a value of another kind than the attribute's.
  void setValue_forKey(std::optional<Value> value, std::string_view key);
  void setValue_forKey(std::nullptr_t, std::string_view key) = delete;

  /// Whether the next save inserts, updates or deletes it.
  bool isInserted() const { return stateIs(State::Inserted); }
  bool isUpdated() const { return stateIs(State::Updated); }
  bool isDeleted() const { return stateIs(State::Deleted); }

 protected:
  /// An attribute by its name, and the place where a subclass expects it, which is looked at first.
  struct AttributeKey {
    std::string_view name;
    std::size_t place = 0;
  };
  /// The value of an attribute as it is stored; a subclass asks for the kind that its entity declares.
  template <typename Kind>
  std::optional<Kind> stored(AttributeKey key) const {
    StoredValue value = storedValue(key);
    if (auto* held = std::get_if<Kind>(&value)) return std::move(*held);
    return std::nullopt;
  }
  template <typename Kind>
  void setStored(std::optional<Kind> value, AttributeKey key) {
    setStoredValue(value ? StoredValue(std::move(*value)) : StoredValue(), key);
  }

 private:
  friend class ObjectRegistry;
  friend class NSManagedObjectContext;
  enum class State { Detached, Inserted, Clean, Updated, Deleted };

  bool stateIs(State state) const;
  std::size_t indexOf(AttributeKey key) const;
  StoredValue storedValue(AttributeKey key) const;
  void setStoredValue(StoredValue value, AttributeKey key);

  // Set once, before anybody else sees the object.
  const NSEntityDescription* entity_ = nullptr;
  std::shared_ptr<ObjectRegistry> registry_;

  // Guarded by the registry's lock.
  State state_ = State::Detached;
  int64_t number_ = 0;  // the row when Clean, Updated or Deleted; the order of insertion when Inserted
  std::vector<StoredValue> values_;
};

}  // namespace platform
