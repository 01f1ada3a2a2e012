#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "platform/coredata/NSEntityDescription.h"
#include "platform/coredata/StoredValue.h"

/// A row of the sensor log in the order in which it is read back, which is not the order of its columns.
class SensorLogColumns {
 public:
  enum Kind { Integer, Unsigned, Text, Date };
  struct Member {
    std::string_view name;
    Kind kind;
  };
  static constexpr std::size_t kCount = 18;
  static constexpr std::array<Member, kCount> kMembers = {{{"beaconType", Unsigned},
                                                           {"beaconId", Text},
                                                           {"uuid", Text},
                                                           {"major", Integer},
                                                           {"minor", Integer},
                                                           {"rssi", Integer},
                                                           {"status", Integer},
                                                           {"statusUpdatedDate", Date},
                                                           {"txPower", Integer},
                                                           {"emergency", Integer},
                                                           {"battery", Integer},
                                                           {"temperature", Text},
                                                           {"humidity", Text},
                                                           {"uniqueId", Text},
                                                           {"tbd", Text},
                                                           {"xAccel", Text},
                                                           {"yAccel", Text},
                                                           {"zAccel", Text}}};

  /// Throws platform::NSInvalidArgumentException when the entity lacks one of them.
  explicit SensorLogColumns(const platform::NSEntityDescription& entity);

  const platform::StoredView& valueAt(const platform::StoredRow& row, std::size_t member) const {
    return row.values[places_[member]];
  }
  /// How many members come before the first absent value: what is read back.
  std::size_t presentMembers(const platform::StoredRow& row) const;

 private:
  std::array<std::size_t, kCount> places_{};
};
