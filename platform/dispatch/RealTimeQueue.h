#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include "platform/dispatch/DeadlineMap.h"
#include "platform/dispatch/Readiness.h"

namespace platform {

/// The clock of deadlines.
inline dispatch_time_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

/// A serial queue on real time, run by an event loop: its own thread's, or the one that calls `run` or
/// `poll`.
///
/// The loop is asked for one turn at a time; a turn runs what is due, then sets the alarm for the next
/// deadline. Whatever is pending keeps the queue alive; the last reference to an idle queue ends its thread.
class RealTimeQueue final : public TimerQueue, public std::enable_shared_from_this<RealTimeQueue> {
 public:
  explicit RealTimeQueue(std::string_view label);
  ~RealTimeQueue() override;

  const std::string& label() const override { return label_; }
  void async(dispatch_block_t block) override;
  bool isCurrent() const override;
  void asyncAt(dispatch_time_t due, dispatch_block_t block);

  dispatch_time_t now() const override { return monotonicNow(); }
  dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const override;
  void wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) override;
  std::shared_ptr<TimerSource> forget(TimerSource& source) override;

  /// Gives the queue a thread. Call once, before the first use.
  void startThread();
  /// For a queue without a thread: see RealTimeDispatch. One thread at a time, `run` not from its own block.
  void run();
  size_t poll();
  void stop();
  int fileDescriptor();
  /// Cancels its timers, drops its blocks and ends its thread, for good.
  void end();

 private:
  struct Loop {
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(context);
  };

  void endThread();
  void turn();
  size_t runDue(bool untilStopped);
  size_t collectDue();
  bool runFirst(size_t& handled);
  // With the lock held:
  void changed();
  void requestTurn();
  void setAlarm();
  void showReadiness();

  const std::string label_;
  std::shared_ptr<Loop> loop_ = std::make_shared<Loop>();
  std::thread thread_;
  std::atomic<bool> stopping_{false};

  std::mutex mutex_;  // guards what follows; alarm_ is touched by the loop's thread only
  std::optional<asio::steady_timer> alarm_;
  std::deque<PendingWork> ready_;
  DeadlineMap deadlines_;
  std::optional<Readiness> readiness_;
  uint64_t order_ = 0;
  dispatch_time_t alarmAt_ = DISPATCH_TIME_FOREVER;
  bool running_ = false;        // a loop runs
  bool turnRequested_ = false;  // and will take a turn
  bool ended_ = false;
};

}  // namespace platform
