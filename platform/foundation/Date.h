#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace platform {

/// An absolute instant, in microseconds since 1970-01-01T00:00:00Z; earlier instants are negative.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

inline double timeIntervalSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

/// An instant outside the years 1 to 9999 becomes their first or last one; not-a-number becomes 1970.
inline Date dateWithTimeIntervalSince1970(double seconds) {
  constexpr double kFirst = -62'135'596'800;
  constexpr double kLast = 253'402'300'799;
  if (std::isnan(seconds)) return Date();
  return Date(std::chrono::microseconds(std::llround(std::clamp(seconds, kFirst, kLast) * 1e6)));
}

/// Seconds since 1970, truncated toward zero.
inline int64_t wholeSecondsSince1970(Date date) {
  return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

}  // namespace platform
