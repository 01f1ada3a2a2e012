#pragma once

#include <atomic>

#include "platform/dispatch/CallGate.h"

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
    delegate_ = delegate;
    gate_.waitForOthers();
  }

  /// Runs `work` with the delegate, if there is one.
  template <class Work>
  void call(const Work& work) {
    gate_.call([&] {
      if (Delegate* const delegate = delegate_) work(*delegate);
    });
  }

 private:
  CallGate gate_;
  std::atomic<Delegate*> delegate_ = nullptr;
};

}  // namespace platform
