#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/dispatch/DeadlineMap.h"
#include "platform/dispatch/Readiness.h"
#include "platform/dispatch/Sleeper.h"
#include "platform/dispatch/TimerSource.h"

namespace platform {

/// The clock of deadlines.
inline dispatch_time_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

/// A serial queue on real time, run by its own thread or by the one that calls `run` or `poll`.
class RealTimeQueue final : public TimerQueue, public std::enable_shared_from_this<RealTimeQueue> {
 public:
  explicit RealTimeQueue(std::string_view label) : label_(label) {}
  ~RealTimeQueue() override;

  /// Gives the queue a thread, which owns it. What is returned is for whoever submits: once that is let go
  /// of, the thread does what is pending and ends.
  static dispatch_queue_t startThread(const std::shared_ptr<RealTimeQueue>& queue);

  /// The one whose block the calling thread is in; null when it is in none.
  static RealTimeQueue* current();

  const std::string& label() const override { return label_; }
  void async(dispatch_block_t block) override;
  bool isCurrent() const override;
  void asyncAt(dispatch_time_t due, dispatch_block_t block);

  dispatch_time_t now() const override { return monotonicNow(); }
  Mutex& mutex() override { return mutex_; }
  uint64_t& submissions() override { return submissions_; }
  dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const override;
  void wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) override;
  std::shared_ptr<TimerSource> forget(TimerSource& source) override;

  /// For a queue without a thread: see RealTimeDispatch. One thread at a time, `run` not from its own block.
  void run();
  size_t poll();
  void stop();
  int fileDescriptor();
  /// Wakes who sleeps past what comes next.
  void wakeUp();
  /// Cancels its timers, drops its blocks and ends its thread, for good.
  void end();

 private:
  using Lock = std::unique_lock<Mutex>;
  static constexpr dispatch_time_t kAwake = dispatch_time_t::min();

  void release();
  void endThread();
  void submitted(Lock& lock);
  // With the lock held:
  bool sleepsTooLong() const { return nextWork() < asleepUntil_; }
  dispatch_time_t nextWork() const;
  void sleep(Lock& lock);
  size_t collectDue();
  bool runFirst(Lock& lock) noexcept;
  void showReadiness();

  const std::string label_;
  std::thread thread_;

  Mutex mutex_;  // guards what follows
  Sleeper sleeper_;
  dispatch_time_t asleepUntil_ = kAwake;
  std::deque<PendingWork> ready_;
  DeadlineMap deadlines_;
  std::optional<Readiness> readiness_;
  uint64_t submissions_ = 0;
  bool stopping_ = false;
  bool released_ = false;  // nobody submits any more
  bool ended_ = false;
};

}  // namespace platform
