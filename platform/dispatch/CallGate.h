#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

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
    if (!enter()) return;
    const Inside inside(*this);
    work();
  }

  /// No call begins afterwards. Waits for the calls that run on other threads and for `onClosed`; called from
  /// inside a call, it leaves `onClosed` to that call's end. May be repeated.
  void close();

  /// Waits for the calls that have begun on other threads, but not for later ones.
  void waitForOthers();

  bool isClosed() const { return isClosed_; }

 private:
  struct Call {
    std::thread::id thread;
    uint64_t number;
    bool isWaiting;  ///< for the others to end
  };
  class Inside {
   public:
    explicit Inside(CallGate& gate) : gate_(gate) {}
    ~Inside() { gate_.leave(); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    CallGate& gate_;
  };

  bool enter();
  void leave();
  // With the lock held.
  void begin();
  void waitForOthers(std::unique_lock<std::mutex>& lock);
  bool markOwn(bool isWaiting);

  std::mutex mutex_;  // guards what follows; `isClosed_` is read without it
  std::condition_variable changed_;
  std::function<void()> onClosed_;
  std::atomic<bool> isClosed_ = false;
  std::vector<Call> calls_;  ///< that run
  uint64_t lastNumber_ = 0;
};

}  // namespace platform
