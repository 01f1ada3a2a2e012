#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/coredata/NSPredicate.h"

namespace platform {

/// What to fetch: all objects of an entity, or those that a predicate lets through, or the first of them.
class BRL_EXPORT NSFetchRequest {
 public:
  /// +[NSFetchRequest fetchRequestWithEntityName:]
  static NSFetchRequest fetchRequestWithEntityName(std::string_view name) { return NSFetchRequest(name); }

  /// -[NSFetchRequest setPredicate:]
  void setPredicate(std::optional<NSPredicate> predicate) { predicate_ = std::move(predicate); }

  /// -[NSFetchRequest setFetchLimit:]
  /// No more than so many; 0: all.
  void setFetchLimit(std::size_t limit) { fetchLimit_ = limit; }

  const std::string& entityName() const { return entityName_; }
  const std::optional<NSPredicate>& predicate() const { return predicate_; }
  std::size_t fetchLimit() const { return fetchLimit_; }

 private:
  explicit NSFetchRequest(std::string_view name) : entityName_(name) {}

  std::string entityName_;
  std::optional<NSPredicate> predicate_;
  std::size_t fetchLimit_ = 0;
};

}  // namespace platform
