#include "platform/simulated/SimulatedWorldSource.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/bluetooth/HandlerGate.h"

namespace platform {
namespace {

class WorldSource final : public AdvertisingReportSource, public std::enable_shared_from_this<WorldSource> {
 public:
  WorldSource(std::shared_ptr<DispatchService> dispatch, const BeaconWorldOptions& options,
              dispatch_time_t duration, std::function<void()> onEnd)
      : dispatch_(std::move(dispatch)),
        queue_(dispatch_->createQueue("SimulatedWorld")),
        options_(options),
        duration_(duration),
        onEnd_(std::move(onEnd)) {}

  void open(ReportHandler onReport, StateHandler onState) override;
  void startScan(const std::vector<CBUUID>& services) override;
  void stopScan() override;
  void close() override { gate_.close(); }

 private:
  void submit(dispatch_time_t delay, void (WorldSource::*step)());
  void begin();
  void deliver();
  void scheduleNext();
  void end();

  const std::shared_ptr<DispatchService> dispatch_;
  const dispatch_queue_t queue_;
  BeaconWorldOptions options_;
  const dispatch_time_t duration_;
  const std::function<void()> onEnd_;
  HandlerGate gate_;

  std::mutex mutex_;
  bool isScanning_ = false;  // guarded by the mutex
  bool hasBegun_ = false;    // guarded by the mutex

  // On the queue only.
  std::optional<BeaconWorld> world_;
  AdvertisingReport next_;
  dispatch_time_t beginning_{};
};

void WorldSource::open(ReportHandler onReport, StateHandler onState) {
  gate_.open(std::move(onReport), std::move(onState));
  queue_->async([self = shared_from_this()] { self->gate_.state({CBManagerState::poweredOn, "simulated"}); });
}

void WorldSource::startScan(const std::vector<CBUUID>&) {
  {
    const std::scoped_lock lock(mutex_);
    isScanning_ = true;
    if (std::exchange(hasBegun_, true)) return;
  }
  queue_->async([self = shared_from_this()] { self->begin(); });
}

void WorldSource::stopScan() {
  const std::scoped_lock lock(mutex_);
  isScanning_ = false;
}

/// The world goes on only as long as somebody holds the source.
void WorldSource::submit(dispatch_time_t delay, void (WorldSource::*step)()) {
  dispatch_->after(delay, queue_, [weak = weak_from_this(), step] {
    if (const auto self = weak.lock()) (self.get()->*step)();
  });
}

void WorldSource::begin() {
  options_.start = dispatch_->date();
  beginning_ = dispatch_->now();
  world_.emplace(options_);
  if (duration_ != DISPATCH_TIME_FOREVER) submit(duration_, &WorldSource::end);
  next_ = world_->next();
  scheduleNext();
}

void WorldSource::scheduleNext() {
  if (next_.time == Date::max()) return;
  const dispatch_time_t due = next_.time - options_.start;
  if (due > duration_) return;
  submit(std::max(dispatch_time_t::zero(), beginning_ + due - dispatch_->now()), &WorldSource::deliver);
}

void WorldSource::deliver() {
  const bool isHeard = [&] {
    const std::scoped_lock lock(mutex_);
    return isScanning_;
  }();
  next_.time = dispatch_->date();
  if (isHeard) gate_.report(next_);
  next_ = world_->next();
  scheduleNext();
}

void WorldSource::end() {
  if (onEnd_) onEnd_();
}

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeSimulatedWorldSource(std::shared_ptr<DispatchService> dispatch,
                                                                  const BeaconWorldOptions& options,
                                                                  dispatch_time_t duration,
                                                                  std::function<void()> onEnd) {
  return std::make_shared<WorldSource>(std::move(dispatch), options, duration, std::move(onEnd));
}

}  // namespace platform
