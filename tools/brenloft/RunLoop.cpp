#include "tools/brenloft/RunLoop.h"

#include <chrono>

namespace brenloft {
namespace {

// Where virtual time begins unless a capture brings its own.
constexpr platform::Date kVirtualStart = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

}  // namespace

RunLoop::RunLoop(Clock clock) {
  if (clock == Clock::virtualTime)
    dispatch_ = virtual_ = platform::VirtualDispatch::make(kVirtualStart);
  else
    dispatch_ = real_ = platform::RealTimeDispatch::make();
}

void RunLoop::run() {
  if (virtual_)
    virtual_->runUntilIdle();
  else
    real_->run();
}

void RunLoop::stop() {
  // Weakly: in a queue that never runs again, the block would keep the queue's own service alive.
  const std::weak_ptr<platform::VirtualDispatch> virtualTime = virtual_;
  const std::weak_ptr<platform::RealTimeDispatch> realTime = real_;
  dispatch_->mainQueue()->async([virtualTime, realTime] {
    if (const auto service = virtualTime.lock()) service->stop();
    if (const auto service = realTime.lock()) service->stop();
  });
}

void RunLoop::runDue() {
  if (virtual_)
    virtual_->runDue();
  else
    real_->poll();
}

}  // namespace brenloft
