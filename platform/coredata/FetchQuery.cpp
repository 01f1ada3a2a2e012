#include "platform/coredata/FetchQuery.h"

namespace platform {

Result<FetchQuery> FetchQuery::make(const NSManagedObjectModel& model, const NSFetchRequest& request) {
  const auto* entity = model.entityNamed(request.entityName());
  if (entity == nullptr) return Error{.text = "no entity named " + request.entityName()};
  FetchQuery query{static_cast<std::size_t>(entity - model.entities().data()), request.predicate(), 0,
                   request.fetchLimit()};
  if (!query.predicate) return query;
  const auto attribute = entity->indexOfAttribute(query.predicate->key());
  if (!attribute || entity->attributes()[*attribute].attributeType != NSAttributeType::String) {
    return Error{.text = "no text attribute named " + query.predicate->key()};
  }
  query.attribute = *attribute;
  return query;
}

bool FetchQuery::matches(const StoredView& value) const {
  if (!predicate) return true;
  const auto* text = std::get_if<std::string_view>(&value);
  const auto& wanted = predicate->argument();
  return wanted ? text != nullptr && *text == *wanted : text == nullptr;
}

}  // namespace platform
