#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLSensorFrame.h"

enum class BRLKind { integer, unsignedInteger, text, date };

/// One property of a record.
template <typename T>
struct BRLProperty {
  std::string_view name;
  T BRLBeaconSnapshot::*member;
  std::size_t readBack;  ///< its place where a row of the sensor log is read back
  std::size_t column;    ///< its place in ServiceModel.model, where it is looked for first

  static constexpr BRLKind kind() {
    if constexpr (std::is_same_v<T, int64_t>) return BRLKind::integer;
    if constexpr (std::is_same_v<T, uint64_t>) return BRLKind::unsignedInteger;
    if constexpr (std::is_same_v<T, BRLOptionalText>) return BRLKind::text;
    if constexpr (std::is_same_v<T, std::optional<platform::Date>>) return BRLKind::date;
  }
};
template <typename T>
BRLProperty(std::string_view, T BRLBeaconSnapshot::*, std::size_t, std::size_t) -> BRLProperty<T>;

/// The properties in their declared order. Whatever makes, copies, stores, reads or prints a whole record
/// goes through this table.
inline constexpr std::tuple kBRLProperties{
    BRLProperty{"beaconType", &BRLBeaconSnapshot::beaconType, 0, 2},
    BRLProperty{"beaconId", &BRLBeaconSnapshot::beaconId, 1, 1},
    BRLProperty{"uuid", &BRLBeaconSnapshot::uuid, 2, 14},
    BRLProperty{"major", &BRLBeaconSnapshot::major, 3, 5},
    BRLProperty{"minor", &BRLBeaconSnapshot::minor, 4, 6},
    BRLProperty{"rssi", &BRLBeaconSnapshot::rssi, 5, 7},
    BRLProperty{"txPower", &BRLBeaconSnapshot::txPower, 8, 12},
    BRLProperty{"emergency", &BRLBeaconSnapshot::emergency, 9, 3},
    BRLProperty{"battery", &BRLBeaconSnapshot::battery, 10, 0},
    BRLProperty{"temperature", &BRLBeaconSnapshot::temperature, 11, 11},
    BRLProperty{"humidity", &BRLBeaconSnapshot::humidity, 12, 4},
    BRLProperty{"uniqueId", &BRLBeaconSnapshot::uniqueId, 13, 13},
    BRLProperty{"tbd", &BRLBeaconSnapshot::tbd, 14, 10},
    BRLProperty{"status", &BRLBeaconSnapshot::status, 6, 8},
    BRLProperty{"statusUpdatedDate", &BRLBeaconSnapshot::statusUpdatedDate, 7, 9},
    BRLProperty{"xAccel", &BRLBeaconSnapshot::xAccel, 15, 15},
    BRLProperty{"yAccel", &BRLBeaconSnapshot::yAccel, 16, 16},
    BRLProperty{"zAccel", &BRLBeaconSnapshot::zAccel, 17, 17},
};

/// One reading of a sensor frame.
template <typename T>
struct BRLReading {
  std::string_view name;
  T BRLSensorReadings::*member;
};
template <typename T>
BRLReading(std::string_view, T BRLSensorReadings::*) -> BRLReading<T>;

/// The readings in their declared order.
inline constexpr std::tuple kBRLReadings{
    BRLReading{"uniqueId", &BRLSensorReadings::uniqueId},
    BRLReading{"txPower", &BRLSensorReadings::txPower},
    BRLReading{"temperature", &BRLSensorReadings::temperature},
    BRLReading{"humidity", &BRLSensorReadings::humidity},
    BRLReading{"battery", &BRLSensorReadings::battery},
    BRLReading{"emergency", &BRLSensorReadings::emergency},
    BRLReading{"tbd", &BRLSensorReadings::tbd},
    BRLReading{"xAccel", &BRLSensorReadings::xAccel},
    BRLReading{"yAccel", &BRLSensorReadings::yAccel},
    BRLReading{"zAccel", &BRLSensorReadings::zAccel},
};

inline constexpr std::size_t kBRLPropertyCount = std::tuple_size_v<decltype(kBRLProperties)>;

/// Visits each line of one of the tables, in its order.
template <typename Table, typename Visitor>
constexpr void BRLForEach(const Table& table, const Visitor& visit) {
  std::apply([&](const auto&... line) { (visit(line), ...); }, table);
}

/// Whether an order gives every property a place of its own.
template <typename PlaceOf>
constexpr bool BRLIsOrder(const PlaceOf& placeOf) {
  std::array<int, kBRLPropertyCount> taken{};
  BRLForEach(kBRLProperties, [&](const auto& property) { ++taken.at(placeOf(property)); });
  return std::all_of(taken.begin(), taken.end(), [](int count) { return count == 1; });
}
static_assert(BRLIsOrder([](const auto& property) { return property.readBack; }));
static_assert(BRLIsOrder([](const auto& property) { return property.column; }));
