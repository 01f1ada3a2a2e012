#pragma once

#include <memory>
#include <vector>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Mutex.h"

namespace platform {

/// Blocks for one queue that run together: those that come while the first one waits run behind it, in order,
/// and other queues are woken once for all that they submit. For blocks that wait for none of it.
///
/// Threads: any.
class BlockBatch : public std::enable_shared_from_this<BlockBatch> {
 public:
  explicit BlockBatch(dispatch_queue_t queue) : queue_(std::move(queue)) {}

  void async(dispatch_block_t block);

 private:
  void run();

  const dispatch_queue_t queue_;
  Mutex mutex_;
  std::vector<dispatch_block_t> waiting_;  // guarded by mutex_
};

}  // namespace platform
