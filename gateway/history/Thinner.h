#pragma once

#include <optional>

#include "gateway/Record.h"
#include "gateway/history/HistoryOptions.h"

namespace brenloft {

/// Chooses the readings that get a row. Its memory of a beacon is the caller's.
class Thinner {
 public:
  /// The last reading of a beacon that was kept.
  struct Last {
    platform::Date heard;
    std::optional<int32_t> rssi{};
    Quantities shown{};
  };

  explicit Thinner(const HistoryOptions& options);

  /// Whether to keep a reading; `last`, which is absent at first, then becomes it. An emergency, its end, and
  /// what follows a clock that was put back are always kept.
  bool keeps(const Reading& reading, std::optional<Last>& last) const;

 private:
  bool isDue(const Reading& reading, const Last& last) const;
  bool hasMoved(const Reading& reading, const Last& last) const;

  const std::optional<std::chrono::microseconds> interval_;  // absent: every reading
  const std::optional<HistoryDeadband> deadband_;
};

}  // namespace brenloft
