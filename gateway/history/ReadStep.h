#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

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

  // Inside a step; what is lent, is lent until its end.
  const Source& source(int64_t id);
  const BeaconId& beacon(int64_t id);
  std::optional<int64_t> idOf(const BeaconId& beacon);
  /// Of those that are there.
  std::vector<std::pair<BeaconId, int64_t>> idsOf(std::span<const BeaconId> beacons);
  std::vector<std::pair<BeaconId, int64_t>> everyBeacon();

  /// The columns of a reading for `readingAt`, from 0 on.
  static constexpr const char* kReadingColumns = "seq, source, heard, rssi, temperature, humidity, x, y, z";
  HistoryRow readingAt(const platform::SQLiteStatement& statement);
  static constexpr const char* kEventColumns =
      "seq, kind, beacon, heard, text, count, severity, quantity, value, threshold, alarm_text";
  HistoryRow eventAt(const platform::SQLiteStatement& statement);

 private:
  // A flood of new identifiers must not fill the memory: so many of the newest are known beforehand, the
  // others are looked up.
  static constexpr int64_t kMostKnown = 20'000;

  void learn();
  void learnBeacons();
  void learnSources();

  platform::SQLiteReadConnection connection_;
  uint64_t generation_ = 0;
  platform::SQLiteDatabase* database_ = nullptr;  // of the step
  // Rows are never changed and their numbers never given again, so what is known stays true.
  std::unordered_map<int64_t, Source> sources_;
  std::unordered_map<int64_t, BeaconId> beacons_;
  int64_t lastSource_ = 0;
  int64_t lastBeacon_ = 0;
};

}  // namespace brenloft::history
