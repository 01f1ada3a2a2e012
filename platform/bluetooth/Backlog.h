#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "platform/foundation/NSLog.h"

namespace platform {

/// Counts what waits on a queue whose owner may be slow for ever, so that it stays bounded, and what is
/// dropped because of that. That this begins is logged once, and at the end how much was.
///
/// Threads: any.
class Backlog {
 public:
  static constexpr int kMost = 10'000;

  explicit Backlog(LogSink onDiagnostic, int most = kMost)
      : most_(most), onDiagnostic_(std::move(onDiagnostic)) {}

  /// False when there is no room.
  bool add() {
    if (waiting_.fetch_add(1) < most_) return true;
    --waiting_;
    return false;
  }
  void remove() { --waiting_; }
  void drop() {
    if (++dropped_ == 1)
      log("reports come faster than they are taken: what exceeds " + std::to_string(most_) +
          " waiting ones is dropped");
  }
  void close() {
    if (const auto dropped = dropped_.exchange(0); dropped > 0)
      log(std::to_string(dropped) + " reports were dropped because they came faster than they were taken");
  }

 private:
  void log(const std::string& line) const {
    if (onDiagnostic_) onDiagnostic_(line);
  }

  const int most_;
  const LogSink onDiagnostic_;
  std::atomic<int> waiting_ = 0;
  std::atomic<uint64_t> dropped_ = 0;
};

}  // namespace platform
