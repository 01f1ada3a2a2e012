#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/dispatch/Block.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

namespace platform {

// Serial queues, the main queue, one-shot timer sources, and the only clock that anything may read.
//
// Threads: every operation may be called from any thread unless its comment says otherwise. A block runs on
// its queue, one at a time, in the order in which blocks were submitted; no lock is held while it runs. An
// exception that leaves a block or a timer's handler ends the process (std::terminate).
// Implementers: the conformance suite in tests/dispatch holds for every implementation.

/// Nanoseconds on a clock that never goes back and knows no date.
using dispatch_time_t = std::chrono::nanoseconds;
inline constexpr dispatch_time_t DISPATCH_TIME_FOREVER = dispatch_time_t::max();

/// `when + delta`. A sum out of range becomes the latest or the earliest time.
inline dispatch_time_t dispatch_time(dispatch_time_t when, std::chrono::nanoseconds delta) {
  dispatch_time_t::rep sum = 0;
  if (!__builtin_add_overflow(when.count(), delta.count(), &sum)) return dispatch_time_t(sum);
  return delta.count() > 0 ? DISPATCH_TIME_FOREVER : dispatch_time_t::min();
}

class BRL_EXPORT dispatch_queue {
 public:
  virtual ~dispatch_queue() = default;
  virtual const std::string& label() const = 0;
  /// Submits a block and returns at once; the block runs later, also when called from this queue.
  virtual void async(dispatch_block_t block) = 0;
  /// True inside a block of this queue.
  virtual bool isCurrent() const = 0;
};
using dispatch_queue_t = std::shared_ptr<dispatch_queue>;

/// A one-shot timer source on a serial queue. It begins suspended, without a deadline.
///
/// A source stays alive while it is armed or suspended with a deadline, without any outside reference.
class BRL_EXPORT dispatch_source_timer {
 public:
  virtual ~dispatch_source_timer() = default;

  /// What runs on the queue at the deadline. Call before the first `resume`.
  virtual void setEventHandler(dispatch_block_t handler) = 0;
  /// Sets the deadline anew. An earlier one that has not begun to fire is forgotten. Never fires before
  /// `start`, and at most `leeway` after it. A start that has passed fires at once. No effect once cancelled.
  /// A later deadline costs no more than storing it.
  virtual void setTimer(dispatch_time_t start, dispatch_time_t interval, dispatch_time_t leeway) = 0;
  /// Suspensions count: the handler runs only while the count is zero. A deadline that passes meanwhile fires
  /// at the last `resume`.
  virtual void suspend() = 0;
  /// A `resume` without its `suspend` (beyond the one that activates the source) has no effect.
  virtual void resume() = 0;
  /// Ends the timer for good: the handler does not begin afterwards.
  virtual void cancel() = 0;
  virtual bool testCancel() const = 0;

  /// What the latest `setTimer` asked for.
  virtual dispatch_time_t start() const = 0;
  virtual dispatch_time_t leeway() const = 0;
};
using dispatch_source_t = std::shared_ptr<dispatch_source_timer>;

class BRL_EXPORT DispatchService {
 public:
  virtual ~DispatchService() = default;

  virtual dispatch_time_t now() const = 0;  ///< never goes back
  virtual Date date() const = 0;            ///< jumps when somebody sets the machine's clock
  /// The queue that the application runs.
  virtual const dispatch_queue_t& mainQueue() const = 0;
  virtual dispatch_queue_t createQueue(std::string_view label) = 0;
  /// Timers and delayed blocks take queues of this service only; another's throws std::invalid_argument.
  virtual dispatch_source_t createTimer(const dispatch_queue_t& queue) = 0;
  /// Submits a block once `delay` has passed.
  virtual void after(dispatch_time_t delay, const dispatch_queue_t& queue, dispatch_block_t block) = 0;
};

}  // namespace platform
