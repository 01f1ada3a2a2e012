#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

/// The one way to a delegate that somebody else owns. Once the delegate is replaced, no call to the earlier
/// one begins or still runs, except a call that replaces it itself. No lock is held during a call.
///
/// Threads: any.
template <class Delegate>
class DelegateGate {
 public:
  /// Waits for calls that run on other threads.
  void setDelegate(Delegate* delegate) {
    std::unique_lock lock(mutex_);
    delegate_ = delegate;
    ended_.wait(lock, [&] {
      return std::ranges::all_of(running_,
                                 [](std::thread::id id) { return id == std::this_thread::get_id(); });
    });
  }

  /// Runs `work` with the delegate, if there is one.
  template <class Work>
  void call(const Work& work) {
    Delegate* delegate = nullptr;
    {
      const std::scoped_lock lock(mutex_);
      if (delegate_ == nullptr) return;
      delegate = delegate_;
      running_.push_back(std::this_thread::get_id());
    }
    work(*delegate);
    const std::scoped_lock lock(mutex_);
    running_.erase(std::ranges::find(running_, std::this_thread::get_id()));
    ended_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  Delegate* delegate_ = nullptr;
  std::vector<std::thread::id> running_;
};

}  // namespace platform
