#include "platform/dispatch/VirtualDispatch.h"

#include <utility>

#include "platform/dispatch/VirtualEngine.h"

namespace platform {
namespace {

class VirtualQueue final : public TimerQueue {
 public:
  VirtualQueue(std::shared_ptr<VirtualEngine> engine, std::string_view label)
      : engine_(std::move(engine)), label_(label) {}

  const std::string& label() const override { return label_; }
  void async(dispatch_block_t block) override { engine_->post(*this, std::move(block)); }
  bool isCurrent() const override { return engine_->isCurrent(*this); }

  dispatch_time_t now() const override { return engine_->now(); }
  Mutex& mutex() override { return engine_->mutex(); }
  uint64_t& submissions() override { return engine_->submissions(); }
  dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const override {
    return engine_->pick(want, leeway);
  }
  void wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) override {
    engine_->wakeAt(due, order, *this, source);
  }
  std::shared_ptr<TimerSource> forget(TimerSource& source) override { return engine_->forget(source); }

 private:
  const std::shared_ptr<VirtualEngine> engine_;
  const std::string label_;
};

class VirtualDispatchService final : public VirtualDispatch {
 public:
  explicit VirtualDispatchService(Date start)
      : engine_(std::make_shared<VirtualEngine>(start)), mainQueue_(createQueue("main")) {}
  ~VirtualDispatchService() override { engine_->end(); }

  dispatch_time_t now() const override { return engine_->now(); }
  Date date() const override { return engine_->date(); }
  const dispatch_queue_t& mainQueue() const override { return mainQueue_; }
  dispatch_queue_t createQueue(std::string_view label) final {
    return std::make_shared<VirtualQueue>(engine_, label);
  }
  dispatch_source_t createTimer(const dispatch_queue_t& queue) override {
    return std::make_shared<TimerSource>(std::shared_ptr<TimerQueue>(queue, &ownQueue<VirtualQueue>(queue)));
  }
  void after(dispatch_time_t delay, const dispatch_queue_t& queue, dispatch_block_t block) override {
    engine_->postAt(dispatch_time(engine_->now(), delay), ownQueue<VirtualQueue>(queue), std::move(block));
  }

  void advance(dispatch_time_t duration) override { advanceTo(dispatch_time(now(), duration)); }
  void advanceTo(dispatch_time_t instant) override {
    const auto engine = engine_;  // a block may let go of the service
    if (engine->run(std::max(instant, engine->now()))) engine->moveTo(instant);
  }
  void runDue() override { advanceTo(now()); }
  void runUntilIdle() override {
    const auto engine = engine_;
    engine->run(DISPATCH_TIME_FOREVER);
  }
  void stop() override { engine_->stop(); }
  void skip(dispatch_time_t duration) override { engine_->skip(duration); }
  void setDate(Date date) override { engine_->setDate(date); }

  std::size_t pendingCount() const override { return engine_->pendingCount(); }
  std::optional<dispatch_time_t> nextDue() const override {
    const dispatch_time_t due = engine_->nextDue();
    if (due == DISPATCH_TIME_FOREVER) return std::nullopt;
    return due;
  }
  void shuffleTies(uint64_t seed) override { engine_->shuffleTies(seed); }
  void fireLate(bool late) override { engine_->fireLate(late); }

 private:
  const std::shared_ptr<VirtualEngine> engine_;
  const dispatch_queue_t mainQueue_;
};

}  // namespace

std::shared_ptr<VirtualDispatch> VirtualDispatch::make(Date start) {
  return std::make_shared<VirtualDispatchService>(start);
}

}  // namespace platform
