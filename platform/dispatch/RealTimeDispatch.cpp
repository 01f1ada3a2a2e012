#include "platform/dispatch/RealTimeDispatch.h"

#include <mutex>
#include <utility>
#include <vector>

#include "platform/dispatch/RealTimeQueue.h"

namespace platform {
namespace {

class RealTimeDispatchService final : public RealTimeDispatch {
 public:
  RealTimeDispatchService() : main_(std::make_shared<RealTimeQueue>("main")), mainQueue_(main_) {}
  ~RealTimeDispatchService() override;

  dispatch_time_t now() const override { return monotonicNow(); }
  Date date() const override {
    return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
  }
  const dispatch_queue_t& mainQueue() const override { return mainQueue_; }
  dispatch_queue_t createQueue(std::string_view label) override;
  dispatch_source_t createTimer(const dispatch_queue_t& queue) override {
    return std::make_shared<TimerSource>(std::shared_ptr<TimerQueue>(queue, &ownQueue<RealTimeQueue>(queue)));
  }
  void after(dispatch_time_t delay, const dispatch_queue_t& queue, dispatch_block_t block) override {
    ownQueue<RealTimeQueue>(queue).asyncAt(dispatch_time(monotonicNow(), delay), std::move(block));
  }

  // A block may let go of the service while its queue runs.
  void run() override { std::shared_ptr(main_)->run(); }
  std::size_t poll() override { return std::shared_ptr(main_)->poll(); }
  int fileDescriptor() const override { return main_->fileDescriptor(); }
  void stop() override { main_->stop(); }

 private:
  const std::shared_ptr<RealTimeQueue> main_;
  const dispatch_queue_t mainQueue_;
  std::mutex mutex_;
  std::vector<std::weak_ptr<RealTimeQueue>> queues_;  // guarded by mutex_
};

dispatch_queue_t RealTimeDispatchService::createQueue(std::string_view label) {
  const auto queue = std::make_shared<RealTimeQueue>(label);
  const std::scoped_lock lock(mutex_);
  std::erase_if(queues_, [](const auto& known) { return known.expired(); });
  queues_.push_back(queue);
  return RealTimeQueue::startThread(queue);
}

RealTimeDispatchService::~RealTimeDispatchService() {
  for (const auto& known : queues_) {
    if (const auto queue = known.lock()) queue->end();
  }
  main_->end();
}

}  // namespace

void RealTimeDispatch::asyncOnCurrent(dispatch_block_t block) {
  if (RealTimeQueue* const queue = RealTimeQueue::current(); queue != nullptr)
    return queue->async(std::move(block));
  block();
}

std::shared_ptr<RealTimeDispatch> RealTimeDispatch::make() {
  return std::make_shared<RealTimeDispatchService>();
}

}  // namespace platform
