#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/dispatch/Dispatch.h"

namespace platform {

class TimerSource;

/// What a timer source needs from the queue that it fires on.
///
/// Implementers: a source calls these with its own lock held, so none of them may call back into a source
/// except for `target`, nor run or destroy foreign code.
class TimerQueue : public dispatch_queue {
 public:
  virtual dispatch_time_t now() const = 0;
  /// The instant in [want, want + leeway] at which to fire.
  virtual dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const = 0;
  /// Calls the source's `onWake` on this queue at `due`, instead of what was asked for before. Until then the
  /// queue keeps the source alive. DISPATCH_TIME_FOREVER keeps it alive without a wake-up.
  virtual void wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) = 0;
  /// Drops the wake-up. The caller lets go of the returned reference after its lock.
  virtual std::shared_ptr<TimerSource> forget(TimerSource& source) = 0;
  /// Counts submissions where equal deadlines keep their order, else null.
  virtual std::atomic<uint64_t>* submissions() { return nullptr; }
};

/// The timer of every backend.
///
/// The deadline that is wanted is kept apart from the one that a wake-up is armed for. Pushing back stores
/// the first and finds the second early enough; the wake-up then goes to sleep again for the rest. A setter
/// stores `want_` and then loads `armed_`; whoever moves the wake-up stores FOREVER into `armed_` and then
/// loads `want_`, all in one total order, so that at least one of the two sees the other. Firing takes the
/// deadline by compare-exchange, so that a push-back that has returned either is fired for or postpones the
/// firing.
class TimerSource final : public dispatch_source_timer, public std::enable_shared_from_this<TimerSource> {
 public:
  explicit TimerSource(std::shared_ptr<TimerQueue> queue);

  void setEventHandler(dispatch_block_t handler) override;
  void setTimer(dispatch_time_t start, dispatch_time_t interval, dispatch_time_t leeway) override;
  void suspend() override;
  void resume() override;
  void cancel() override;
  bool testCancel() const override;
  dispatch_time_t start() const override;
  dispatch_time_t leeway() const override;

  /// Called on the queue when a wake-up is due; true when the handler ran.
  bool onWake();
  /// Moves the wake-up to where the deadline is now.
  void settle();
  /// When the source wants to fire: DISPATCH_TIME_FOREVER without a deadline.
  dispatch_time_t target() const;

 private:
  using Rep = dispatch_time_t::rep;
  static constexpr Rep kForever = DISPATCH_TIME_FOREVER.count();

  dispatch_time_t targetFor(Rep want) const;
  /// Makes the queue's wake-up match the state. Lock held; what it returns is let go after the lock.
  std::shared_ptr<TimerSource> place();
  /// Takes a deadline that has passed. Lock held.
  bool claim();

  const std::shared_ptr<TimerQueue> queue_;
  std::atomic<uint64_t>* const submissions_;
  std::atomic<Rep> want_{kForever};
  std::atomic<Rep> armed_{kForever};
  std::atomic<Rep> start_{kForever};
  std::atomic<Rep> leeway_{0};
  std::atomic<uint64_t> order_{0};
  std::atomic<bool> cancelled_{false};

  std::mutex mutex_;
  unsigned suspensions_ = 1;                         // guarded by mutex_
  std::shared_ptr<const dispatch_block_t> handler_;  // guarded by mutex_
};

}  // namespace platform
