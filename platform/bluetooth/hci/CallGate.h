#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace platform::hci {

/// Lets blocks of one queue in until it is closed, and lets the closer know when nothing is inside any more.
/// The lock is not held while a block is inside.
class CallGate {
 public:
  /// For a block; false once closed.
  bool enter() {
    const std::lock_guard lock(mutex_);
    if (closed_) return false;
    busy_ = true;
    return true;
  }

  void leave() {
    const std::lock_guard lock(mutex_);
    busy_ = false;
    left_.notify_all();
  }

  /// Closes and, unless called from inside, waits until nothing is inside. True for the first call only.
  bool close(bool fromInside) {
    std::unique_lock lock(mutex_);
    const bool isFirst = !closed_;
    if (isFirst) closedFromInside_ = fromInside;
    closed_ = true;
    if (!fromInside) left_.wait(lock, [this] { return !busy_; });
    return isFirst;
  }

  bool isClosed() const { return closed_; }
  /// For a block inside.
  bool isClosedFromInside() const { return closed_ && closedFromInside_; }

 private:
  std::mutex mutex_;
  std::condition_variable left_;
  std::atomic<bool> closed_{false};
  std::atomic<bool> closedFromInside_{false};
  bool busy_ = false;  ///< guarded by mutex_
};

}  // namespace platform::hci
