#pragma once

#include <memory>

#include "platform/dispatch/Dispatch.h"

namespace platform {

/// Dispatch on the machine's own clocks (CLOCK_MONOTONIC for deadlines, the system clock for dates). Each
/// created queue has a thread of its own; the main queue runs where the application runs it.
///
/// The end of the service is the end of its queues: what has not begun is dropped, timers are cancelled, and
/// threads are waited for (except by themselves). A created queue that nobody holds and that has nothing
/// pending ends by itself.
class BRL_EXPORT RealTimeDispatch : public DispatchService {
 public:
  static std::shared_ptr<RealTimeDispatch> make();

  /// Submits a block to the queue whose block the calling thread is in, of whatever service; runs it at once
  /// on a thread that is in none. For what is to be done once for all that waits there.
  static void asyncOnCurrent(dispatch_block_t block);

  /// Runs blocks of the main queue on the calling thread until `stop`. One thread at a time, and not from one
  /// of those blocks. A `stop` that came before makes it return at once.
  virtual void run() = 0;
  /// Runs the blocks that are due now and returns how many ran; for applications with a loop of their own.
  virtual std::size_t poll() = 0;
  /// Becomes readable when `poll` has something to do. Owned by the service; watch it, do not read it.
  virtual int fileDescriptor() const = 0;
  /// Makes `run` return after the block that it is in. Safe from any thread, not from a signal handler.
  virtual void stop() = 0;
};

}  // namespace platform
