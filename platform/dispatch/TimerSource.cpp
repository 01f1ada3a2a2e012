#include "platform/dispatch/TimerSource.h"

#include <mutex>
#include <utility>

namespace platform {

TimerSource::TimerSource(std::shared_ptr<TimerQueue> queue)
    : queue_(std::move(queue)), mutex_(queue_->mutex()) {}

void TimerSource::setEventHandler(dispatch_block_t handler) {
  auto kept = std::make_shared<const dispatch_block_t>(std::move(handler));
  const std::scoped_lock lock(mutex_);
  if (!cancelled_) handler_.swap(kept);
}

void TimerSource::setTimer(dispatch_time_t start, dispatch_time_t /*interval*/, dispatch_time_t leeway) {
  std::shared_ptr<TimerSource> dropped;
  const std::scoped_lock lock(mutex_);
  if (cancelled_) return;
  start_ = want_ = start;
  leeway_ = leeway;
  order_ = queue_->submissions()++;
  const bool wakesInTime = armed_ != DISPATCH_TIME_FOREVER && (armed_ <= want_ || armed_ <= target());
  if (want_ == DISPATCH_TIME_FOREVER || !wakesInTime) dropped = place();
}

// When to fire: DISPATCH_TIME_FOREVER without a deadline.
dispatch_time_t TimerSource::target() const {
  if (want_ == DISPATCH_TIME_FOREVER || leeway_ <= dispatch_time_t::zero()) return want_;
  return queue_->pick(want_, leeway_);
}

// Makes the queue's wake-up match the state; what this returns is let go of after the lock.
std::shared_ptr<TimerSource> TimerSource::place() {
  if (cancelled_) return nullptr;
  armed_ = suspensions_ == 0 ? target() : DISPATCH_TIME_FOREVER;
  if (want_ == DISPATCH_TIME_FOREVER) return queue_->forget(*this);
  queue_->wakeAt(shared_from_this(), armed_, order_);
  return nullptr;
}

void TimerSource::suspend() {
  std::shared_ptr<TimerSource> dropped;
  const std::scoped_lock lock(mutex_);
  if (suspensions_++ == 0) dropped = place();
}

void TimerSource::resume() {
  std::shared_ptr<TimerSource> dropped;
  const std::scoped_lock lock(mutex_);
  if (suspensions_ == 0) return;
  if (--suspensions_ == 0) dropped = place();
}

void TimerSource::cancel() {
  std::shared_ptr<TimerSource> dropped;
  std::shared_ptr<const dispatch_block_t> handler;
  const std::scoped_lock lock(mutex_);
  cancelled_ = true;
  dropped = queue_->forget(*this);
  handler.swap(handler_);
}

bool TimerSource::testCancel() const {
  return cancelled_.load(std::memory_order_acquire);
}

dispatch_time_t TimerSource::start() const {
  const std::scoped_lock lock(mutex_);
  return start_;
}

dispatch_time_t TimerSource::leeway() const {
  const std::scoped_lock lock(mutex_);
  return leeway_;
}

bool TimerSource::rearm() {
  if (armed_ == target()) return false;
  place();
  return true;
}

// Takes a deadline that has passed.
bool TimerSource::claim() {
  if (suspensions_ > 0 || want_ == DISPATCH_TIME_FOREVER || target() > queue_->now()) return false;
  want_ = DISPATCH_TIME_FOREVER;
  return true;
}

bool TimerSource::onWake() {
  std::shared_ptr<const dispatch_block_t> handler;
  std::shared_ptr<TimerSource> dropped;
  {
    const std::scoped_lock lock(mutex_);
    if (cancelled_) return false;
    if (claim()) handler = handler_;
    dropped = place();  // asleep again for the rest, if any
  }
  if (!handler || !*handler) return false;
  (*handler)();
  return true;
}

}  // namespace platform
