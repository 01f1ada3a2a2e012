#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Mutex.h"

namespace platform {

/// How one thread sleeps and others wake it: as a condition variable, but without a lock of its own, which
/// the woken one and the one that wakes would mostly meet at.
class Sleeper {
 public:
  /// Without the lock meanwhile. Ends by `wake`, at `until` or for no reason. One thread at a time.
  void sleep(std::unique_lock<Mutex>& lock, dispatch_time_t until);
  /// After what the sleeper looks at was changed with the lock held.
  void wake();

 private:
  std::atomic<int32_t> wakeUps_ = 0;
};

}  // namespace platform
