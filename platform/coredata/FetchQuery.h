#pragma once

#include <cstddef>
#include <optional>

#include "platform/coredata/NSError.h"
#include "platform/coredata/NSFetchRequest.h"
#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/coredata/StoredValue.h"

namespace platform {

/// A fetch request held against a model: the places of its entity and of the predicate's attribute.
struct FetchQuery {
  std::size_t entity = 0;
  std::optional<NSPredicate> predicate;
  std::size_t attribute = 0;

  /// Nothing when the model has no such entity or text attribute.
  static std::optional<FetchQuery> make(const NSManagedObjectModel& model, const NSFetchRequest& request,
                                        NSError* error);
  /// What the predicate says to a value of its attribute.
  bool matches(const StoredView& value) const;
};

}  // namespace platform
