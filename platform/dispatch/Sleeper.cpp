#include "platform/dispatch/Sleeper.h"

#include <chrono>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform {
namespace {

// Steady clock, absolute.
timespec timeOf(dispatch_time_t instant) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(instant);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((instant - seconds).count())};
}

}  // namespace

void Sleeper::sleep(std::unique_lock<Mutex>& lock, dispatch_time_t until) {
  const int32_t before = wakeUps_.load(std::memory_order_relaxed);
  lock.unlock();
  const timespec end = timeOf(until);
  // Returns at once when it was woken since.
  ::syscall(SYS_futex, &wakeUps_, FUTEX_WAIT_BITSET_PRIVATE, before,
            until == DISPATCH_TIME_FOREVER ? nullptr : &end, nullptr, FUTEX_BITSET_MATCH_ANY);
  lock.lock();
}

void Sleeper::wake() {
  wakeUps_.fetch_add(1, std::memory_order_relaxed);
  ::syscall(SYS_futex, &wakeUps_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace platform
