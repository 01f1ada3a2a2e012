#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace brenloft {

/// How far each quantity must move until a reading is worth a row, in the units of `Quantities` and dBm;
/// absent: the quantity makes no row.
struct HistoryDeadband {
  std::optional<int32_t> temperature{};
  std::optional<int32_t> humidity{};
  std::optional<int32_t> battery{};
  std::optional<int32_t> rssi{};
  std::optional<int32_t> acceleration{};  ///< on any axis

  friend bool operator==(const HistoryDeadband&, const HistoryDeadband&) = default;
};

/// Which readings get a row, and how long rows stay.
struct HistoryOptions {
  /// One routine reading of a beacon in so long; absent: every one, or with a deadband one an hour.
  std::optional<std::chrono::microseconds> interval{};
  /// And, in between, one that moved so far.
  std::optional<HistoryDeadband> deadband{};
  std::optional<std::chrono::microseconds> keep{};  ///< older rows go
  std::optional<uint64_t> keepSize{};               ///< octets of the file; beyond, the oldest rows go
  /// Each commit waits for the disk, so that a power cut costs no committed row. A replay can be had again.
  bool isSynced = true;
  /// A file that is made is its owner's alone.
  bool isOwnerOnly = false;

  friend bool operator==(const HistoryOptions&, const HistoryOptions&) = default;
};

/// "temperature=0.2,humidity=1" in degrees and percent; nothing when it is none.
std::optional<HistoryDeadband> historyDeadbandFromText(std::string_view text);

/// Octets: "500M", "2G", "1.5G", by 1024; nothing when it is no size of at least 1M.
std::optional<uint64_t> historySizeFromText(std::string_view text);

}  // namespace brenloft
