#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"

namespace platform {

/// Keeps every diagnostic line, in the order in which they were written. Threads: any.
class BRL_EXPORT RecordingLog : public std::enable_shared_from_this<RecordingLog> {
 public:
  void write(std::string_view line);
  std::vector<std::string> lines() const;
  /// How many lines are exactly this text.
  std::size_t count(std::string_view line) const;
  void clear();
  /// A sink that writes here; it keeps the log alive.
  LogSink sink();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace platform
