#include "platform/coredata/NSEntityDescription.h"

#include <utility>

#include "platform/coredata/NSInvalidArgumentException.h"
#include "platform/coredata/NSManagedObjectContext.h"

namespace platform {

NSEntityDescription::NSEntityDescription(std::string name, std::vector<NSAttributeDescription> attributes)
    : name_(std::move(name)), attributes_(std::move(attributes)) {
  for (std::size_t i = 0; i < attributes_.size(); ++i) indexes_.emplace(attributes_[i].name, i);
  if (indexes_.size() != attributes_.size()) {
    throw NSInvalidArgumentException("entity " + name_ + " has two attributes of one name");
  }
}

std::optional<std::size_t> NSEntityDescription::indexOfAttribute(std::string_view name) const {
  const auto it = indexes_.find(name);
  return it == indexes_.end() ? std::nullopt : std::optional(it->second);
}

std::shared_ptr<NSManagedObject> NSEntityDescription::makeObject() const {
  return maker_ ? maker_() : std::make_shared<NSManagedObject>();
}

std::shared_ptr<NSManagedObject> NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(
    std::string_view name, NSManagedObjectContext* context) {
  if (context == nullptr) {
    throw NSInvalidArgumentException("no context to insert a new " + std::string(name) + " into");
  }
  return context->insertNewObject(name);
}

}  // namespace platform
