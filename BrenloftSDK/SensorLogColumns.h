#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "BrenloftSDK/BRLProperties.h"
#include "platform/coredata/NSEntityDescription.h"
#include "platform/coredata/StoredValue.h"

struct SensorLogMember {
  std::string_view name;
  BRLKind kind;
};

/// A row of the sensor log in the order in which it is read back.
inline constexpr auto kSensorLogMembers = [] {
  std::array<SensorLogMember, kBRLPropertyCount> members{};
  BRLForEach(kBRLProperties, [&](const auto& property) {
    members[property.readBack] = {property.name, property.kind()};
  });
  return members;
}();

/// Where those members are in the rows of an entity.
class SensorLogColumns {
 public:
  /// Throws platform::NSInvalidArgumentException when the entity lacks one of them.
  explicit SensorLogColumns(const platform::NSEntityDescription& entity);

  const platform::StoredView& valueAt(const platform::StoredRow& row, std::size_t member) const {
    return row.values[places_[member]];
  }
  /// How many members come before the first absent value: what is read back.
  std::size_t presentMembers(const platform::StoredRow& row) const;

 private:
  std::array<std::size_t, kSensorLogMembers.size()> places_{};
};
