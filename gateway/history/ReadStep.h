#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>

#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistorySchema.h"
#include "gateway/history/HistoryStore.h"

namespace brenloft::history {

/// A connection that reads, and what it remembers of beacons and sources. Everything here throws
/// platform::SQLiteFailure.
class ReadStep {
 public:
  struct Source {
    int64_t beacon = 0;
    Traits traits{};
  };

  explicit ReadStep(const std::filesystem::path& file) : connection_(openForReading(file)) {}

  /// Runs `read` on one snapshot, which ends with it.
  void at(const std::function<void(platform::SQLiteDatabase&)>& read);

  // Inside a step.
  const Source& source(int64_t id) const;
  const BeaconId& beacon(int64_t id) const;
  std::optional<int64_t> idOf(const BeaconId& beacon) const;
  const std::unordered_map<int64_t, BeaconId>& beacons() const { return beacons_; }

  /// The columns of a reading for `readingAt`, from 0 on.
  static constexpr const char* kReadingColumns = "seq, source, heard, rssi, temperature, humidity, x, y, z";
  HistoryRow readingAt(const platform::SQLiteStatement& statement) const;
  static constexpr const char* kEventColumns =
      "seq, kind, beacon, heard, text, count, severity, quantity, value, threshold, alarm_text";
  HistoryRow eventAt(const platform::SQLiteStatement& statement) const;

 private:
  void learn(platform::SQLiteDatabase& database);

  platform::SQLiteReadConnection connection_;
  uint64_t generation_ = 0;
  // Rows are never changed and their numbers never given again, so what is known stays true.
  std::unordered_map<int64_t, Source> sources_;
  std::unordered_map<int64_t, BeaconId> beacons_;
  int64_t lastSource_ = 0;
  int64_t lastBeacon_ = 0;
};

}  // namespace brenloft::history
