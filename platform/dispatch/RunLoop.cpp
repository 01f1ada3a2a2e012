#include "platform/dispatch/RunLoop.h"

#include <chrono>
#include <utility>

namespace platform {
namespace {

// Where virtual time begins unless a capture brings its own.
constexpr Date kVirtualStart = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

}  // namespace

RunLoop::RunLoop(Clock clock) {
  if (clock == Clock::virtualTime)
    dispatch_ = virtual_ = VirtualDispatch::make(kVirtualStart);
  else
    dispatch_ = real_ = RealTimeDispatch::make();
}

void RunLoop::run() {
  if (virtual_)
    virtual_->runUntilIdle();
  else
    real_->run();
}

void RunLoop::stop() {
  if (real_) return real_->stop();
  // Weakly: in a queue that never runs again, the block would keep the queue's own service alive.
  dispatch_->mainQueue()->async([weak = std::weak_ptr(virtual_)] {
    if (const auto service = weak.lock()) service->stop();
  });
}

void RunLoop::runDue() {
  if (virtual_) virtual_->runDue();
}

void RunLoop::callAfter(std::chrono::microseconds duration, std::function<void()> block) {
  dispatch_->after(duration, virtual_ ? dispatch_->mainQueue() : dispatch_->createQueue("duration"),
                   std::move(block));
}

}  // namespace platform
