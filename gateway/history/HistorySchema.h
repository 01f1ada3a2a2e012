#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>

#include "gateway/history/HistoryOptions.h"
#include "platform/coredata/SQLiteDatabase.h"
#include "platform/coredata/SQLiteFile.h"
#include "platform/foundation/Date.h"

namespace brenloft::history {

// The file as docs/history.md describes it. Everything here throws platform::SQLiteFailure.

/// Times are kept in microseconds since then, which takes six octets from 2023 to 2032 and eight else.
constexpr platform::Date kEpoch = std::chrono::sys_days(std::chrono::year(2028) / 1 / 1);
inline int64_t ticksOf(platform::Date date) {
  return (date - kEpoch).count();
}
/// The same, held inside what can be said: an open end has no ticks of its own.
inline int64_t heldTicksOf(platform::Date date) {
  return ticksOf(
      std::clamp<platform::Date>(date, kEpoch - std::chrono::years(3000), kEpoch + std::chrono::years(8000)));
}
inline platform::Date dateOf(int64_t ticks) {
  return kEpoch + std::chrono::microseconds(ticks);
}

inline int64_t secondOf(int64_t ticks) {
  return std::chrono::floor<std::chrono::seconds>(dateOf(ticks)).time_since_epoch().count();
}

/// Once so many numbers have been given since the last round, another one is closed.
constexpr int64_t kRoundSize = 8192;
/// The chunk of a beacon in a round, which goes by its last number.
inline int64_t chunkId(int64_t round, int64_t beacon) {
  constexpr int64_t beacons = 1 << 24;
  return round * beacons + beacon % beacons;
}

platform::SQLiteDatabase openForWriting(const std::filesystem::path& file, const HistoryOptions& options);
platform::SQLiteReadConnection openForReading(const std::filesystem::path& file);

}  // namespace brenloft::history
