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
  dispatch_->mainQueue()->async([virtualTime = virtual_, realTime = real_] {
    if (virtualTime)
      virtualTime->stop();
    else
      realTime->stop();
  });
}

void RunLoop::settle() {
  if (virtual_)
    virtual_->runDue();
  else
    real_->poll();
}

}  // namespace brenloft
