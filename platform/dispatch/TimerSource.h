#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <typeinfo>

#include "platform/dispatch/DeadlineMap.h"
#include "platform/foundation/Mutex.h"

namespace platform {

/// What a timer source needs from the queue that it fires on.
class TimerQueue : public dispatch_queue {
 public:
  virtual dispatch_time_t now() const = 0;
  /// Guards the queue and its sources.
  virtual Mutex& mutex() = 0;

  // With the lock held, so none of them may run or destroy foreign code.
  /// The number that the next submission takes: equal deadlines come in its order.
  virtual uint64_t& submissions() = 0;
  /// The instant in [want, want + leeway] at which to fire.
  virtual dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const = 0;
  /// Calls the source's `onWake` on this queue at `due`, instead of what was asked for before. Until then the
  /// queue keeps the source alive. DISPATCH_TIME_FOREVER keeps it alive without a wake-up.
  virtual void wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) = 0;
  /// Drops the wake-up. The caller lets go of the returned reference after the lock.
  virtual std::shared_ptr<TimerSource> forget(TimerSource& source) = 0;
};

/// A queue as the kind that its service makes; another service's is a std::invalid_argument. Asked for every
/// delayed block, so without a walk through the classes.
template <class Own>
Own& ownQueue(const dispatch_queue_t& queue) {
  const dispatch_queue* const any = queue.get();
  if (any == nullptr || typeid(*any) != typeid(Own))
    throw std::invalid_argument("the queue belongs to another dispatch service");
  return static_cast<Own&>(*queue);
}

/// The timer of every backend.
///
/// The deadline that is wanted is kept apart from the one that a wake-up is armed for. Pushing back stores
/// the first and finds the second early enough; the wake-up then goes to sleep again for the rest.
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
  /// Moves the wake-up to where the deadline is now; false when it was there. With the queue's lock held.
  bool rearm();
  /// Its wake-up, as long as it has one. With the queue's lock held.
  std::optional<DeadlineMap::Entries::iterator>& wake() { return wake_; }

 private:
  // With the lock held:
  dispatch_time_t target() const;
  std::shared_ptr<TimerSource> place();
  bool claim();

  const std::shared_ptr<TimerQueue> queue_;
  Mutex& mutex_;  // the queue's; guards what follows, and changes of `cancelled_`
  dispatch_time_t start_ = DISPATCH_TIME_FOREVER;
  dispatch_time_t leeway_{};
  dispatch_time_t want_ = DISPATCH_TIME_FOREVER;   // `start_` until it is taken
  dispatch_time_t armed_ = DISPATCH_TIME_FOREVER;  // when the queue calls `onWake`
  uint64_t order_ = 0;
  std::optional<DeadlineMap::Entries::iterator> wake_;
  std::atomic<bool> cancelled_{false};
  unsigned suspensions_ = 1;
  std::shared_ptr<const dispatch_block_t> handler_;
};

}  // namespace platform
