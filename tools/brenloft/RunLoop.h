#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace brenloft {

/// The clock that a source belongs to, and the main queue on it, run by the calling thread.
class RunLoop {
 public:
  enum class Clock { virtualTime, realTime };

  explicit RunLoop(Clock clock);

  const std::shared_ptr<platform::DispatchService>& dispatch() const { return dispatch_; }
  bool isVirtual() const { return virtual_ != nullptr; }

  /// Returns after `stop`; on virtual time also when nothing is left to happen.
  void run();
  /// Makes `run` return before the clock moves on; on real time after the block that runs, whatever waits on
  /// the main queue. Threads: any.
  void stop();
  /// Runs what is due by now; on virtual time only.
  void runDue();
  /// Calls this once the duration has passed; on real time on a thread of its own, so that nothing holds it
  /// up.
  void callAfter(std::chrono::microseconds duration, std::function<void()> block);

 private:
  std::shared_ptr<platform::VirtualDispatch> virtual_;
  std::shared_ptr<platform::RealTimeDispatch> real_;
  std::shared_ptr<platform::DispatchService> dispatch_;
};

}  // namespace brenloft
