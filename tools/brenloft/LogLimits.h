#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/foundation/Date.h"

namespace brenloft {

/// How much of the sensor log stays.
struct LogBounds {
  std::optional<uint64_t> mostOctets{};                ///< of the store's file
  std::optional<std::chrono::microseconds> longest{};  ///< that a row is kept

  friend bool operator==(const LogBounds&, const LogBounds&) = default;
};

/// Deletes the oldest rows of the installed platform's sensor log, beside whoever logs and reads. They go in
/// the order of writing; one that a wrong clock dated more than an hour ahead goes with the next good one.
///
/// A file that has become too large loses a tenth more than it must, so that not each row costs a deletion.
/// Threads: one at a time. A failure ends the process, as that of logging does.
class LogLimits {
 public:
  /// Rows that one step deletes at most: they hold up the logging for some hundredths of a second.
  static constexpr uint64_t kStep = 1000;

  explicit LogLimits(LogBounds bounds) : bounds_(bounds) {}

  /// Whether there is more to delete.
  bool step(platform::Date now);
  /// How many rows went.
  uint64_t deleted() const { return deleted_; }

 private:
  void look();
  uint64_t sizeOfFile() const;

  const LogBounds bounds_;
  uint64_t deleted_ = 0;
  uint64_t left_ = 0;  ///< rows still to go because of the size
  uint64_t tolerated_ =
      0;  ///< octets: what they left has room for new rows, though the file may keep its size
};

}  // namespace brenloft
