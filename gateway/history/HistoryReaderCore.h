#pragma once

#include <filesystem>
#include <functional>
#include <unordered_map>
#include <vector>

#include "gateway/history/HistoryReader.h"
#include "gateway/history/ReadStep.h"

namespace brenloft {

class HistoryReader::Core {
 public:
  explicit Core(const std::filesystem::path& file) : step(file) {}

  /// The answer from one snapshot.
  template <typename Value>
  platform::Result<Value> ask(const std::function<Value(platform::SQLiteDatabase&)>& question);
  void addLast(platform::SQLiteDatabase& database, const BeaconId& beacon,
               std::unordered_map<int64_t, int64_t>& newest);
  std::vector<HistoryBeacon> withRows(platform::SQLiteDatabase& database,
                                      const std::unordered_map<int64_t, int64_t>& newest);

  history::ReadStep step;
};

}  // namespace brenloft
