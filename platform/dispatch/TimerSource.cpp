#include "platform/dispatch/TimerSource.h"

#include <utility>

namespace platform {

TimerSource::TimerSource(std::shared_ptr<TimerQueue> queue)
    : queue_(std::move(queue)), submissions_(queue_->submissions()) {}

void TimerSource::setEventHandler(dispatch_block_t handler) {
  auto kept = std::make_shared<const dispatch_block_t>(std::move(handler));
  const std::scoped_lock lock(mutex_);
  if (!testCancel()) handler_.swap(kept);
}

void TimerSource::setTimer(dispatch_time_t start, dispatch_time_t /*interval*/, dispatch_time_t leeway) {
  if (testCancel()) return;
  start_.store(start.count(), std::memory_order_relaxed);
  leeway_.store(leeway.count(), std::memory_order_relaxed);
  if (submissions_ != nullptr) order_.store(submissions_->fetch_add(1, std::memory_order_relaxed));
  want_.store(start.count(), std::memory_order_seq_cst);
  const Rep armed = armed_.load(std::memory_order_seq_cst);
  const bool wakesInTime = armed <= start.count() || armed <= targetFor(start.count()).count();
  if (armed != kForever && wakesInTime) return;
  std::shared_ptr<TimerSource> dropped;
  const std::scoped_lock lock(mutex_);
  if (armed_.load() > target().count() || armed_.load() == kForever) dropped = place();
}

std::shared_ptr<TimerSource> TimerSource::place() {
  if (testCancel()) return nullptr;
  armed_.store(kForever, std::memory_order_seq_cst);
  const Rep want = want_.load(std::memory_order_seq_cst);
  if (want == kForever) return queue_->forget(*this);
  const dispatch_time_t due = suspensions_ == 0 ? targetFor(want) : DISPATCH_TIME_FOREVER;
  armed_.store(due.count(), std::memory_order_seq_cst);
  queue_->wakeAt(shared_from_this(), due, order_.load());
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
  cancelled_.store(true);
  dropped = queue_->forget(*this);
  handler.swap(handler_);
}

bool TimerSource::testCancel() const {
  return cancelled_.load(std::memory_order_acquire);
}

dispatch_time_t TimerSource::start() const {
  return dispatch_time_t(start_.load(std::memory_order_relaxed));
}
dispatch_time_t TimerSource::leeway() const {
  return dispatch_time_t(leeway_.load(std::memory_order_relaxed));
}

dispatch_time_t TimerSource::targetFor(Rep want) const {
  const dispatch_time_t leeway = this->leeway();
  if (want == kForever || leeway <= dispatch_time_t::zero()) return dispatch_time_t(want);
  return queue_->pick(dispatch_time_t(want), leeway);
}

dispatch_time_t TimerSource::target() const {
  return targetFor(want_.load(std::memory_order_seq_cst));
}

void TimerSource::settle() {
  std::shared_ptr<TimerSource> dropped;
  const std::scoped_lock lock(mutex_);
  dropped = place();
}

bool TimerSource::claim() {
  armed_.store(kForever, std::memory_order_seq_cst);
  Rep want = want_.load(std::memory_order_seq_cst);
  if (suspensions_ > 0 || want == kForever || targetFor(want) > queue_->now()) return false;
  return want_.compare_exchange_strong(want, kForever, std::memory_order_seq_cst);
}

bool TimerSource::onWake() {
  std::shared_ptr<const dispatch_block_t> handler;
  std::shared_ptr<TimerSource> dropped;
  {
    const std::scoped_lock lock(mutex_);
    if (testCancel()) return false;
    if (claim()) handler = handler_;
    // Asleep again for the rest, or for a deadline that was set while the last one was taken.
    dropped = place();
  }
  if (!handler || !*handler) return false;
  (*handler)();
  return true;
}

}  // namespace platform
