#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/Mutex.h"

/// A one-shot timer on a serial queue: runs a handler once, a number of seconds after it was scheduled, and
/// can be pushed back any number of times before that.
///
/// It never fires early, and late by at most its leeway: none below ten seconds, then one second for every
/// full ten seconds of `delay`.
///
/// Lifetime: stays alive while it is armed or suspended, without any outside reference.
/// Threads: every operation may be called from any thread, except that `setWrappedBlock`, `setQueue` and
/// `setSource` must not run beside other operations on the same timer. The handler runs on the queue.
class BRL_EXPORT BRLTimer : public std::enable_shared_from_this<BRLTimer> {
  // Only this class can make one, `{}` does not.
  class Key {
    friend class BRLTimer;
    Key() {}  // NOLINT(modernize-use-equals-default): an aggregate would be made by {}
  };

 public:
  using Block = std::function<void(BRLTimer&)>;

  struct BRL_EXPORT Class {
    /// A timer that does nothing until `schedule`; `delay` in seconds.
    // +[BRLTimer timerWithDelay:onQueue:block:]
    static std::shared_ptr<BRLTimer> timerWithDelay_onQueue_block(double delay,
                                                                  const platform::dispatch_queue_t& queue,
                                                                  Block block);
    /// The same, already scheduled.
    // +[BRLTimer scheduledTimerWithDelay:onQueue:block:]
    static std::shared_ptr<BRLTimer> scheduledTimerWithDelay_onQueue_block(
        double delay, const platform::dispatch_queue_t& queue, Block block);
  };

  /// A delay in seconds as timers count it: whole nanoseconds, truncated toward zero. A delay out of range
  /// becomes the longest or the shortest one; not-a-number becomes 0.
  static platform::dispatch_time_t durationOf(double delay);

  /// Timers are made by `Class`.
  // -[BRLTimer initWithDelay:onQueue:block:]
  BRLTimer(Key, double delay, platform::dispatch_queue_t queue, Block block);
  BRLTimer(const BRLTimer&) = delete;
  BRLTimer& operator=(const BRLTimer&) = delete;
  ~BRLTimer() = default;

  /// Arms the timer. Call once; a second call only pushes it back.
  // -[BRLTimer schedule]
  void schedule();
  /// Counts `delay` from now again. No effect on a timer that has fired or was cancelled.
  // -[BRLTimer reschedule]
  void reschedule();
  /// Each `suspend` needs its `resume`. A deadline that passes meanwhile fires at the last `resume`.
  // -[BRLTimer suspend]
  void suspend();
  // -[BRLTimer resume]
  void resume();
  /// Ends the timer for good: the handler does not begin afterwards.
  // -[BRLTimer cancel]
  void cancel();

  /// The handler, read when the timer fires.
  // @property BRLTimer.block
  Block block() const;
  void setBlock(Block block);
  /// What `schedule` installs on the source. Does not keep the timer alive.
  // @property BRLTimer.wrappedBlock
  platform::dispatch_block_t wrappedBlock();
  void setWrappedBlock(platform::dispatch_block_t block) {
    wrappedBlock_ = std::make_unique<const platform::dispatch_block_t>(std::move(block));
  }
  /// The queue given at the beginning; setting another one does not move the source.
  // @property BRLTimer.queue
  platform::dispatch_queue_t queue() const { return queue_; }
  void setQueue(platform::dispatch_queue_t queue) { queue_ = std::move(queue); }
  /// Seconds; a change counts from the next `reschedule`.
  // @property BRLTimer.delay
  double delay() const { return delay_.load(std::memory_order_relaxed); }
  void setDelay(double delay) { delay_.store(delay, std::memory_order_relaxed); }
  // @property BRLTimer.source
  const platform::dispatch_source_t& source() const { return source_; }
  void setSource(platform::dispatch_source_t source) { source_ = std::move(source); }
  /// The application's own flag; `suspend` and `resume` leave it alone.
  // @property BRLTimer.suspended
  bool suspended() const { return suspended_.load(std::memory_order_relaxed); }
  void setSuspended(bool suspended) { suspended_.store(suspended, std::memory_order_relaxed); }

 private:
  void fire();

  // The services it was made with; kept, so that a push-back need not look them up.
  const std::shared_ptr<platform::DispatchService> dispatch_;
  Block block_;                                                     // guarded by mutex_
  std::unique_ptr<const platform::dispatch_block_t> wrappedBlock_;  // absent: fire()
  platform::dispatch_queue_t queue_;
  platform::dispatch_source_t source_;
  std::atomic<double> delay_;
  std::atomic<bool> suspended_{false};
  mutable platform::Mutex mutex_;
};
