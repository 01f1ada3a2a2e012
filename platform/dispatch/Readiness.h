#pragma once

#include "platform/dispatch/Dispatch.h"

namespace platform {

/// A file descriptor for a foreign loop: readable while a signal is set or once a deadline has passed.
///
/// Threads: none of its own; the owner locks.
class Readiness {
 public:
  /// Throws std::system_error when the process has no descriptors left.
  Readiness();
  ~Readiness();
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  int fileDescriptor() const { return epoll_; }
  void setSignal(bool set);
  /// An instant of CLOCK_MONOTONIC; DISPATCH_TIME_FOREVER for none.
  void setDeadline(dispatch_time_t due);

 private:
  void watch(int descriptor) const;
  void closeAll() const;

  int epoll_ = -1;
  int event_ = -1;
  int timer_ = -1;
  bool signalled_ = false;
  dispatch_time_t due_ = DISPATCH_TIME_FOREVER;
};

}  // namespace platform
