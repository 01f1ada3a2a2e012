#include "BrenloftSDK/BRLTimer.h"

#include <cmath>
#include <limits>
#include <mutex>

#include "platform/Platform.h"

namespace {

using platform::dispatch_time_t;

constexpr double kNanosecondsPerSecond = 1e9;

// Truncated toward zero and held at the ends of the range; what is no number counts as 0.
template <typename Integer>
Integer truncated(double value) {
  constexpr auto kLimits = std::numeric_limits<Integer>();
  if (value >= static_cast<double>(kLimits.max())) return kLimits.max();
  if (value <= static_cast<double>(kLimits.min())) return kLimits.min();
  return std::isnan(value) ? 0 : static_cast<Integer>(value);
}

// Whole tenths of the delay in seconds, so none below ten seconds.
dispatch_time_t leewayOf(double delay) {
  if (delay < 10.0) return dispatch_time_t::zero();
  const auto seconds = truncated<uint64_t>(delay / 10.0);
  constexpr auto kMost = static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::seconds>(platform::DISPATCH_TIME_FOREVER).count());
  if (seconds > kMost) return platform::DISPATCH_TIME_FOREVER;
  return std::chrono::seconds(seconds);
}

}  // namespace

std::shared_ptr<BRLTimer> BRLTimer::Class::timerWithDelay_onQueue_block(
    double delay, const platform::dispatch_queue_t& queue, Block block) {
  return std::make_shared<BRLTimer>(Key(), delay, queue, std::move(block));
}

std::shared_ptr<BRLTimer> BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(
    double delay, const platform::dispatch_queue_t& queue, Block block) {
  auto timer = timerWithDelay_onQueue_block(delay, queue, std::move(block));
  timer->schedule();
  return timer;
}

BRLTimer::BRLTimer(Key, double delay, platform::dispatch_queue_t queue, Block block)
    : dispatch_(platform::Platform::installed().dispatch),
      block_(std::move(block)),
      queue_(std::move(queue)),
      source_(dispatch_->createTimer(queue_)),
      delay_(delay) {}

dispatch_time_t BRLTimer::durationOf(double delay) {
  return dispatch_time_t(truncated<int64_t>(delay * kNanosecondsPerSecond));
}

void BRLTimer::schedule() {
  reschedule();
  // The source holds the timer until it has fired or was cancelled.
  if (wrappedBlock_)
    source_->setEventHandler([self = shared_from_this(), handler = *wrappedBlock_] {
      if (handler) handler();
    });
  else
    source_->setEventHandler([self = shared_from_this()] { self->fire(); });
  source_->resume();
}

platform::dispatch_block_t BRLTimer::wrappedBlock() {
  if (wrappedBlock_) return *wrappedBlock_;
  return [weakTimer = weak_from_this()] {
    if (const auto self = weakTimer.lock()) self->fire();
  };
}

void BRLTimer::reschedule() {
  const double delay = this->delay();
  source_->setTimer(platform::dispatch_time(dispatch_->now(), durationOf(delay)),
                    platform::DISPATCH_TIME_FOREVER, leewayOf(delay));
}

void BRLTimer::suspend() {
  source_->suspend();
}

void BRLTimer::resume() {
  source_->resume();
}

void BRLTimer::cancel() {
  source_->cancel();
}

BRLTimer::Block BRLTimer::block() const {
  const std::scoped_lock lock(mutex_);
  return block_;
}

void BRLTimer::setBlock(Block block) {
  const std::scoped_lock lock(mutex_);
  block_.swap(block);
}

void BRLTimer::fire() {
  if (source_->testCancel()) return;
  source_->cancel();
  if (const Block handler = block()) handler(*this);
}
