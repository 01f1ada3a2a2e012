#include "platform/simulated/SimulatedWorldSource.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>

#include "platform/bluetooth/QueuedSource.h"

namespace platform {
namespace {

class WorldSource final : public QueuedSource<> {
 public:
  WorldSource(std::shared_ptr<DispatchService> dispatch, const BeaconWorldOptions& options,
              dispatch_time_t duration, std::function<void()> onEnd)
      : QueuedSource(std::move(dispatch), "simulated world"),
        options_(options),
        duration_(duration),
        onEnd_(std::move(onEnd)) {}

  void startScan(const std::vector<CBUUID>&) override {
    isScanning_ = true;
    post(&WorldSource::begin);
  }
  void stopScan() override { isScanning_ = false; }

 private:
  void didOpen() override { announce({CBManagerState::poweredOn, "simulated"}); }
  void begin();
  void deliver();
  void scheduleNext();
  void end();

  BeaconWorldOptions options_;
  const dispatch_time_t duration_;
  const std::function<void()> onEnd_;
  std::atomic<bool> isScanning_ = false;

  // In steps only.
  std::optional<BeaconWorld> world_;
  AdvertisingReport next_;
  dispatch_time_t beginning_{};
};

void WorldSource::begin() {
  if (world_) return;
  options_.start = dispatch().date();
  beginning_ = dispatch().now();
  world_.emplace(options_);
  if (duration_ != DISPATCH_TIME_FOREVER) later(duration_, &WorldSource::end);
  next_ = world_->next();
  scheduleNext();
}

void WorldSource::scheduleNext() {
  if (next_.time == Date::max()) return;
  const dispatch_time_t due = next_.time - options_.start;
  if (due > duration_) return;
  later(std::max(dispatch_time_t::zero(), beginning_ + due - dispatch().now()), &WorldSource::deliver);
}

void WorldSource::deliver() {
  next_.time = dispatch().date();
  if (isScanning_) report(next_);
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
