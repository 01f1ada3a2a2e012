#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/Export.h"

namespace platform {

/// A dispatch service on the clock that is asked for. The calling thread runs its main queue. So an
/// application that hears a radio today and a recording tomorrow has one loop for both.
class BRL_EXPORT RunLoop {
 public:
  enum class Clock { virtualTime, realTime };

  explicit RunLoop(Clock clock);

  const std::shared_ptr<DispatchService>& dispatch() const { return dispatch_; }
  bool isVirtual() const { return virtual_ != nullptr; }

  /// Returns after `stop`; on virtual time also when nothing is left to happen.
  void run();
  /// Makes `run` return. On virtual time that is before the clock moves on; on real time it is after the
  /// block that runs, whatever waits on the main queue. Threads: any.
  void stop();
  /// Runs what is due by now; on virtual time only.
  void runDue();
  /// Calls the block once the duration has passed. On real time that is on a thread of its own, so that
  /// nothing holds it up.
  void callAfter(std::chrono::microseconds duration, std::function<void()> block);

 private:
  std::shared_ptr<VirtualDispatch> virtual_;
  std::shared_ptr<RealTimeDispatch> real_;
  std::shared_ptr<DispatchService> dispatch_;
};

}  // namespace platform
