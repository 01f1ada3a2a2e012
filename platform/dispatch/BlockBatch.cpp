#include "platform/dispatch/BlockBatch.h"

#include <mutex>
#include <utility>

#include "platform/dispatch/WakeUpsTogether.h"

namespace platform {

void BlockBatch::async(dispatch_block_t block) {
  {
    const std::scoped_lock lock(mutex_);
    waiting_.push_back(std::move(block));
    if (waiting_.size() > 1) return;
  }
  queue_->async([self = shared_from_this()] { self->run(); });
}

void BlockBatch::run() {
  std::vector<dispatch_block_t> blocks;
  {
    const std::scoped_lock lock(mutex_);
    blocks.swap(waiting_);
  }
  const WakeUpsTogether together;
  for (const auto& block : blocks) block();
}

}  // namespace platform
