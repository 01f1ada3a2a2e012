#include "tools/brenloft/RunLoop.h"

namespace brenloft {

RunLoop::RunLoop(Clock clock) {
  if (clock == Clock::virtualTime)
    dispatch_ = virtual_ = platform::VirtualDispatch::make();
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
