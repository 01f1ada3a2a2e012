#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/foundation/Export.h"

namespace platform {

class NSManagedObject;
class NSManagedObjectContext;

enum class NSAttributeType { Integer64, UnsignedInteger64, String, DateTime, BinaryData };

/// One attribute of an entity. Every attribute is optional.
struct NSAttributeDescription {
  std::string name;
  NSAttributeType attributeType = NSAttributeType::String;
};

/// One kind of object of a model. Does not change once its model is in use.
class BRL_EXPORT NSEntityDescription {
 public:
  using ObjectMaker = std::function<std::shared_ptr<NSManagedObject>()>;

  NSEntityDescription(std::string name, std::vector<NSAttributeDescription> attributes);

  const std::string& name() const { return name_; }
  const std::vector<NSAttributeDescription>& attributes() const { return attributes_; }
  /// Where an attribute stands; nothing when the entity has no such attribute.
  std::optional<std::size_t> indexOfAttribute(std::string_view name) const;

  /// An object of the entity's class: what the model was told, else a plain NSManagedObject.
  std::shared_ptr<NSManagedObject> makeObject() const;
  void setObjectMaker(ObjectMaker maker) { maker_ = std::move(maker); }

  /// +[NSEntityDescription insertNewObjectForEntityForName:inManagedObjectContext:]
  /// A new object, pending in the context until its next save. Throws NSInvalidArgumentException when there
  /// is no context or its model has no such entity.
  static std::shared_ptr<NSManagedObject> insertNewObjectForEntityForName_inManagedObjectContext(
      std::string_view name, NSManagedObjectContext* context);

 private:
  // Looks a name up without making a text of it.
  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
  };

  std::string name_;
  std::vector<NSAttributeDescription> attributes_;
  std::unordered_map<std::string, std::size_t, NameHash, std::equal_to<>> indexes_;
  ObjectMaker maker_;
};

}  // namespace platform
