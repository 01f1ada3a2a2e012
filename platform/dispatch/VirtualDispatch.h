#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "platform/dispatch/Dispatch.h"

namespace platform {

/// Dispatch on virtual time: all queues and timers run on the thread that advances the clock, in the order of
/// their deadlines, equal deadlines in the order of submission. Nothing sleeps. Blocks may be submitted from
/// other threads; they run when the clock's thread comes to them. A block may itself move the clock; what
/// becomes due then runs inside it. The end of the service cancels its timers and drops its blocks.
class BRL_EXPORT VirtualDispatch : public DispatchService {
 public:
  /// The date at virtual time zero.
  static std::shared_ptr<VirtualDispatch> make(Date start = {});

  /// Moves the clock forward, running what becomes due on the way, each at its own time.
  virtual void advance(dispatch_time_t duration) = 0;
  /// The same up to an instant; an instant that has passed runs only what is due now.
  virtual void advanceTo(dispatch_time_t instant) = 0;
  /// Runs what is due now, and what that submits, without moving the clock.
  virtual void runDue() = 0;
  /// Runs everything, deadlines included, until nothing is pending or `stop` was called.
  virtual void runUntilIdle() = 0;
  /// Makes the innermost running call return after the current block; the clock stays there. No effect when
  /// nothing runs.
  virtual void stop() = 0;
  /// Moves the clock without running anything, as when every queue was blocked.
  virtual void skip(dispatch_time_t duration) = 0;
  /// Sets the date without moving the clock, as when somebody sets the system's time.
  virtual void setDate(Date date) = 0;

  virtual std::size_t pendingCount() const = 0;
  /// The deadline that comes next, if any is set.
  virtual std::optional<dispatch_time_t> nextDue() const = 0;
  /// Orders equal deadlines of different queues by a seeded shuffle instead of submission.
  virtual void shuffleTies(uint64_t seed) = 0;
  /// Lets timers fire as late as their leeway allows instead of exactly.
  virtual void fireLate(bool late) = 0;
};

}  // namespace platform
