#include "platform/dispatch/Readiness.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace platform {

Readiness::Readiness()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)),
      event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (epoll_ < 0 || event_ < 0 || timer_ < 0) {
    const int error = errno;
    closeAll();
    throw std::system_error(error, std::generic_category(), "main queue's file descriptor");
  }
  watch(event_);
  watch(timer_);
}

Readiness::~Readiness() {
  closeAll();
}

void Readiness::closeAll() const {
  for (const int descriptor : {event_, timer_, epoll_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

void Readiness::watch(int descriptor) const {
  epoll_event interest{};
  interest.events = EPOLLIN;
  interest.data.fd = descriptor;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &interest);
}

void Readiness::setSignal(bool set) {
  if (set == signalled_) return;
  signalled_ = set;
  eventfd_t count = 0;
  if (set)
    eventfd_write(event_, 1);
  else
    eventfd_read(event_, &count);
}

void Readiness::setDeadline(dispatch_time_t due) {
  if (due == due_) return;
  due_ = due;
  itimerspec when{};  // all zero disarms, so the past is one nanosecond after the clock's zero
  if (due != DISPATCH_TIME_FOREVER) {
    const dispatch_time_t instant = std::max(due, dispatch_time_t(1));
    when.it_value.tv_sec = std::chrono::floor<std::chrono::seconds>(instant).count();
    when.it_value.tv_nsec = (instant % std::chrono::seconds(1)).count();
  }
  // Setting a timer also takes back that it had run out.
  timerfd_settime(timer_, TFD_TIMER_ABSTIME, &when, nullptr);
}

}  // namespace platform
