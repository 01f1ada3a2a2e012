#include "platform/dispatch/WakeUpsTogether.h"

#include <algorithm>
#include <utility>

#include "platform/dispatch/RealTimeQueue.h"

namespace platform {
namespace {

thread_local WakeUpsTogether* innermost = nullptr;

}  // namespace

WakeUpsTogether::WakeUpsTogether() : outer_(std::exchange(innermost, this)) {}

WakeUpsTogether::~WakeUpsTogether() {
  innermost = outer_;
  for (const auto& queue : asleep_) queue->wakeUp();
}

bool WakeUpsTogether::hold(const std::shared_ptr<RealTimeQueue>& queue) {
  if (innermost == nullptr) return false;
  auto& asleep = innermost->asleep_;
  if (std::ranges::find(asleep, queue) == asleep.end()) asleep.push_back(queue);
  return true;
}

}  // namespace platform
