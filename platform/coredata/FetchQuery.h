#pragma once

#include <cstddef>
#include <optional>

#include "platform/coredata/NSFetchRequest.h"
#include "platform/coredata/NSManagedObjectModel.h"
#include "platform/coredata/StoredValue.h"
#include "platform/foundation/Error.h"

namespace platform {

/// A fetch request held against a model: the places of its entity and of the predicate's attribute.
struct FetchQuery {
  std::size_t entity = 0;
  std::optional<NSPredicate> predicate;
  std::size_t attribute = 0;
  std::size_t limit = 0;  ///< 0: none

  /// Fails when the model has no such entity or text attribute.
  static Result<FetchQuery> make(const NSManagedObjectModel& model, const NSFetchRequest& request);
  /// What the predicate says to a value of its attribute.
  bool matches(const StoredView& value) const;
};

}  // namespace platform
