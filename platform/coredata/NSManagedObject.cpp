#include "platform/coredata/NSManagedObject.h"

#include <string>
#include <utility>

#include "platform/coredata/NSInvalidArgumentException.h"
#include "platform/coredata/ObjectRegistry.h"

namespace platform {
namespace {

[[noreturn]] void wrongKind(const NSAttributeDescription& attribute) {
  throw NSInvalidArgumentException("value of the wrong kind for " + attribute.name);
}

template <typename Kind>
const Kind& expect(const Value& value, const NSAttributeDescription& attribute) {
  const auto* held = std::get_if<Kind>(&value);
  if (held == nullptr) wrongKind(attribute);
  return *held;
}

StoredValue toStored(const Value& value, const NSAttributeDescription& attribute) {
  switch (attribute.attributeType) {
    case NSAttributeType::Integer64:
      return expect<NSNumber>(value, attribute).integerValue();
    case NSAttributeType::UnsignedInteger64:
      return static_cast<int64_t>(expect<NSNumber>(value, attribute).unsignedIntegerValue());
    case NSAttributeType::String:
      return expect<std::string>(value, attribute);
    case NSAttributeType::DateTime:
      return timeIntervalSince1970(expect<Date>(value, attribute));
    case NSAttributeType::BinaryData:
      return expect<Data>(value, attribute);
  }
  wrongKind(attribute);
}

std::optional<Value> toValue(StoredValue stored, NSAttributeType type) {
  return std::visit(
      [&](auto&& held) -> std::optional<Value> {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate>)
          return std::nullopt;
        else if constexpr (std::is_same_v<Held, double>)
          return dateWithTimeIntervalSince1970(held);
        else if constexpr (std::is_same_v<Held, int64_t>) {
          if (type == NSAttributeType::UnsignedInteger64) return NSNumber(static_cast<uint64_t>(held));
          return NSNumber(held);
        } else
          return std::forward<decltype(held)>(held);
      },
      std::move(stored));
}

}  // namespace

NSManagedObject::~NSManagedObject() {
  if (!registry_) return;
  const auto lock = registry_->lock();
  registry_->forget(*this);
}

std::optional<Value> NSManagedObject::valueForKey(std::string_view key) const {
  return toValue(storedValue({key}), entity_->attributes()[indexOf({key})].attributeType);
}

void NSManagedObject::setValue_forKey(std::optional<Value> value, std::string_view key) {
  const NSAttributeDescription& attribute = entity_->attributes()[indexOf({key})];
  const bool absent = !value || std::holds_alternative<NSNull>(*value);
  setStoredValue(absent ? StoredValue() : toStored(*value, attribute), {key});
}

bool NSManagedObject::stateIs(State state) const {
  const auto lock = registry_->lock();
  return state_ == state;
}

std::size_t NSManagedObject::indexOf(AttributeKey key) const {
  const auto& attributes = entity_->attributes();
  if (key.place < attributes.size() && attributes[key.place].name == key.name) return key.place;
  const auto index = entity_->indexOfAttribute(key.name);
  if (!index)
    throw NSInvalidArgumentException(entity_->name() + " has no attribute " + std::string(key.name));
  return *index;
}

StoredValue NSManagedObject::storedValue(AttributeKey key) const {
  const std::size_t index = indexOf(key);
  const auto lock = registry_->lock();
  return values_[index];
}

void NSManagedObject::setStoredValue(StoredValue value, AttributeKey key) {
  const std::size_t index = indexOf(key);
  const auto lock = registry_->lock();
  values_[index] = std::move(value);
  registry_->noteChange(*this);
}

}  // namespace platform
