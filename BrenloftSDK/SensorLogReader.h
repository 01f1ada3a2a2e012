#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"

namespace platform {
class StoreReader;
}

/// Reads the sensor log of a store file while others use it. It sees what is saved and nothing that is
/// pending, and makes no objects. It never changes rows; what a killed process left in the file's log may
/// move into the file. It also works where the file may only be read.
///
/// Rows are read in steps, so that a slow block holds up nobody. Rows that are added after an operation began
/// do not come; rows that are deleted meanwhile may come or not. The result tells of a failure; the rows
/// before it were handed over. Blocks run with no lock held. Threads: one at a time.
class BRL_EXPORT SensorLogReader {
 public:
  struct Row {
    /// Grows from row to row. No later row gets the number of a deleted one.
    int64_t number = 0;
    /// The row's values; absent numbers are 0.
    BRLBeaconSnapshot values;
  };
  /// False ends a walk.
  using RowBlock = std::function<bool(const Row& row)>;
  using TextSink = std::function<void(std::string_view text)>;

  /// Opens an existing store file, such as `storeFile`. Never makes a file. An error's text, here and below,
  /// names the file.
  static platform::Result<std::unique_ptr<SensorLogReader>> open(const std::filesystem::path& file);
  /// The store file of the installed platform.
  static std::filesystem::path storeFile();

  ~SensorLogReader();
  SensorLogReader(const SensorLogReader&) = delete;
  SensorLogReader& operator=(const SensorLogReader&) = delete;

  /// The number of rows.
  platform::Result<uint64_t> count();
  /// The number of the newest row, 0 for an empty log.
  platform::Result<int64_t> lastNumber();
  /// The rows after a number (0: all), oldest first.
  platform::Result<> rowsAfter(int64_t number, const RowBlock& block);
  /// The newest `limit` rows, oldest of them first.
  platform::Result<> lastRows(uint64_t limit, const RowBlock& block);
  /// Writes the document of -[BRLDataManager selectBeaconLogAllJSONWithCompletionBlock:] in pieces, `[]` for
  /// an empty log. A longer log needs no more memory.
  /// `wants` says which rows; without it all are written.
  platform::Result<> exportJSON(const TextSink& sink, const RowBlock& wants = {});
  /// What is wrong with the store file, one line each; no lines when nothing is. Reads the whole file.
  platform::Result<std::vector<std::string>> check();
  /// Copies the whole store with its tags, as it is at one moment, to a file that is not there yet. An
  /// error's text is about that file, but does not name it.
  platform::Result<> copyTo(const std::filesystem::path& file);

 private:
  SensorLogReader(std::unique_ptr<platform::StoreReader> reader, std::string file);
  template <typename Operation>
  auto naming(const Operation& operation);

  std::unique_ptr<platform::StoreReader> reader_;
  std::string file_;
};
