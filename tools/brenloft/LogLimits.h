#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/foundation/Date.h"

namespace brenloft {

/// How much of the sensor log stays.
struct LogBounds {
  std::optional<uint64_t> mostOctets{};                ///< that the store's file uses
  std::optional<std::chrono::microseconds> longest{};  ///< that a row is kept

  friend bool operator==(const LogBounds&, const LogBounds&) = default;
};

/// Deletes the oldest rows of the installed platform's sensor log, beside whoever logs, reads and deletes.
/// They go in the order of writing; one that a wrong clock dated more than an hour ahead goes with the next
/// good one.
///
/// A file that has become too large loses a tenth more than it must, so that not each row costs a deletion.
/// Room that deleted rows have left in it does not count.
/// Threads: one at a time. A failure ends the process, as that of logging does.
class LogLimits {
 public:
  /// Rows that one step deletes at most: they hold up the logging for some hundredths of a second.
  static constexpr uint64_t kStep = 1000;

  explicit LogLimits(LogBounds bounds) : bounds_(bounds) {}

  /// Whether there is more to do.
  bool step(platform::Date now);
  /// How many rows went.
  uint64_t deleted() const { return deleted_; }

 private:
  enum class Age {
    old,
    young,
    ahead,  ///< of the clock, or without a date: what follows decides
  };
  struct Old {
    std::size_t rows = 0;
    bool isMore = false;
  };
  using Dates = std::vector<std::optional<platform::Date>>;

  void look();
  uint64_t rowsTooMany() const;
  Age ageOf(std::optional<platform::Date> date, platform::Date now) const;
  Old oldOf(const Dates& dates, platform::Date now);
  Age ageBehindAhead(platform::Date now);
  bool deleteSome(platform::Date now);

  const LogBounds bounds_;
  uint64_t deleted_ = 0;
  double octetsPerRow_ = 0;      ///< 0: the file was not too large
  int64_t ahead_ = 0;            ///< rows below this number are ahead of the clock
  platform::Date aheadSince_{};  ///< when that began to hold
};

}  // namespace brenloft
