#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

/// A mutex of four octets that is taken and left without a call while nobody else wants it. For what many
/// objects have one of, or what is locked for every advertisement; as std::mutex otherwise.
class Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() {
    State found = kFree;
    if (!state_.compare_exchange_strong(found, kHeld, std::memory_order_acquire)) lockWhenFree();
  }
  bool try_lock() {
    State found = kFree;
    return state_.compare_exchange_strong(found, kHeld, std::memory_order_acquire);
  }
  void unlock() {
    if (state_.exchange(kFree, std::memory_order_release) == kWanted) state_.notify_one();
  }

 private:
  using State = int32_t;  // what atomics wait for without a detour
  static constexpr State kFree = 0;
  static constexpr State kHeld = 1;
  static constexpr State kWanted = 2;  ///< held, and somebody may wait

  void lockWhenFree() {
    while (state_.exchange(kWanted, std::memory_order_acquire) != kFree)
      state_.wait(kWanted, std::memory_order_relaxed);
  }

  std::atomic<State> state_{kFree};
};

}  // namespace platform
