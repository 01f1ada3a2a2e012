#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/foundation/Mutex.h"

namespace platform {

/// Lets calls through until it is closed, and lets the closer wait for those that still run. No lock is held
/// during a call; a call may begin another one inside itself.
///
/// Threads: any.
class CallGate {
 public:
  /// `onClosed` runs once, when the gate is closed and the last call has ended: on the closing thread, or at
  /// the end of that call. It has what the calls work on to itself.
  explicit CallGate(std::function<void()> onClosed = {});
  CallGate(const CallGate&) = delete;
  CallGate& operator=(const CallGate&) = delete;

  /// Runs `work`, unless the gate is closed.
  template <class Work>
  void call(const Work& work) {
    Call call(*this);
    if (enter(call)) work();
  }

  /// No call begins afterwards. Waits for the calls that run on other threads and for `onClosed`; called from
  /// inside a call, it leaves `onClosed` to that call's end. May be repeated.
  void close();

  /// Waits for the calls that have begun on other threads, but not for later ones.
  void waitForOthers();

  bool isClosed() const { return isClosed_; }

 private:
  /// One call, from before it enters until it has left.
  struct Call {
    explicit Call(CallGate& through) : gate(through) {}
    ~Call() {
      if (number > 0) gate.leave(*this);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    CallGate& gate;
    uint64_t number = 0;  ///< from 1, once it runs
    std::thread::id thread{};
    bool isWaiting = false;  ///< for the others to end
    Call* older = nullptr;
  };

  bool enter(Call& call);
  void leave(Call& call);
  // With the lock held.
  void begin(Call& call);
  void waitForOthers(std::unique_lock<Mutex>& lock);
  bool markOwn(bool isWaiting);
  void callsChanged();

  Mutex mutex_;  // guards what follows; `isClosed_` is read without it
  std::condition_variable_any changed_;
  std::function<void()> onClosed_;
  std::atomic<bool> isClosed_ = false;
  Call* newest_ = nullptr;  ///< of those that run
  int waiters_ = 0;
  uint64_t lastNumber_ = 0;
};

}  // namespace platform
