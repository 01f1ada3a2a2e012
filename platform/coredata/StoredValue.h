#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "platform/foundation/Data.h"

namespace platform {

/// A value as the store keeps it: absent, a 64-bit integer (an unsigned one by its bit pattern), a date in
/// seconds since 1970, a text, octets.
using StoredValue = std::variant<std::monostate, int64_t, double, std::string, Data>;

/// The same, lent for the duration of a call.
using StoredView = std::variant<std::monostate, int64_t, double, std::string_view, DataView>;

/// One row, lent for the duration of a call; values stand in the order of the entity's attributes.
struct StoredRow {
  /// Grows in the order of saving; 0 for an object that is not saved yet.
  int64_t number = 0;
  std::span<const StoredView> values;
};

/// Takes one row; false ends the walk.
using StoredRowBlock = std::function<bool(const StoredRow&)>;

inline StoredView storedViewOf(const StoredValue& value) {
  return std::visit(
      [](const auto& held) -> StoredView {
        if constexpr (std::is_same_v<decltype(held), const std::string&>)
          return std::string_view(held);
        else if constexpr (std::is_same_v<decltype(held), const Data&>)
          return DataView(held);
        else
          return held;
      },
      value);
}

inline StoredValue valueOf(const StoredView& view) {
  return std::visit(
      [](const auto& held) -> StoredValue {
        if constexpr (std::is_same_v<decltype(held), const std::string_view&>)
          return std::string(held);
        else if constexpr (std::is_same_v<decltype(held), const DataView&>)
          return toData(held);
        else
          return held;
      },
      view);
}

}  // namespace platform
