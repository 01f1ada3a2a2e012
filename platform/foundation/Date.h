#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>

namespace platform {

/// An absolute instant, in microseconds since 1970-01-01T00:00:00Z; earlier instants are negative.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

inline double timeIntervalSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

inline Date dateWithTimeIntervalSince1970(double seconds) {
  return Date(std::chrono::microseconds(std::llround(seconds * 1e6)));
}

/// Seconds since 1970, truncated toward zero.
inline int64_t wholeSecondsSince1970(Date date) {
  return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

}  // namespace platform
