#pragma once

#include <filesystem>
#include <memory>

#include "gateway/history/HistoryReader.h"

namespace brenloft {

/// Follows a history that another process writes: waits on a descriptor, then reads what is new.
///
/// Threads: one at a time.
class HistoryFollower {
 public:
  struct News {
    std::vector<HistoryRow> rows{};
    /// Rows before these, or before what comes next, that were deleted; where it is not 0 and there are no
    /// rows, go on after those.
    uint64_t missing = 0;
  };

  /// The file need not be there yet; its folder must be.
  static platform::Result<std::unique_ptr<HistoryFollower>> open(const std::filesystem::path& file);
  ~HistoryFollower();
  HistoryFollower(const HistoryFollower&) = delete;
  HistoryFollower& operator=(const HistoryFollower&) = delete;

  /// Readable when `after` should be called. Watch it, do not read it.
  int wakeDescriptor() const;
  /// The next rows after a number, none when there are none yet. Call again at once while it gives rows.
  platform::Result<News> after(int64_t seq, std::size_t limit);

 private:
  class Core;
  explicit HistoryFollower(std::unique_ptr<Core> core);

  const std::unique_ptr<Core> core_;
};

}  // namespace brenloft
