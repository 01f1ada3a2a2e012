#include "platform/simulated/RecordingLog.h"

#include <algorithm>

namespace platform {

void RecordingLog::write(std::string_view line) {
  const std::scoped_lock lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> RecordingLog::lines() const {
  const std::scoped_lock lock(mutex_);
  return lines_;
}

std::size_t RecordingLog::count(std::string_view line) const {
  const std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(std::ranges::count(lines_, line));
}

void RecordingLog::clear() {
  const std::scoped_lock lock(mutex_);
  lines_.clear();
}

LogSink RecordingLog::sink() {
  return [log = shared_from_this()](std::string_view line) { log->write(line); };
}

}  // namespace platform
