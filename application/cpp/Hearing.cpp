#include "application/cpp/Hearing.h"

#include <utility>
#include <vector>

#include "application/cpp/Air.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/sources/Recording.h"

namespace brenloft {
namespace {

using platform::AdvertisingReportSource;

class NotedSource final : public AdvertisingReportSource {
 public:
  NotedSource(std::shared_ptr<AdvertisingReportSource> source, std::shared_ptr<StateReason> reason)
      : source_(std::move(source)), reason_(std::move(reason)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(std::move(onReport), [reason = reason_, onState = std::move(onState)](const auto& state) {
      reason->set(state.reason);
      onState(state);
    });
  }
  void startScan(const std::vector<platform::CBUUID>& services) override { source_->startScan(services); }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  const std::shared_ptr<AdvertisingReportSource> source_;
  const std::shared_ptr<StateReason> reason_;
};

}  // namespace

std::string StateReason::text() const {
  const std::scoped_lock lock(mutex_);
  return text_;
}

void StateReason::set(std::string text) {
  const std::scoped_lock lock(mutex_);
  text_ = std::move(text);
}

std::shared_ptr<AdvertisingReportSource> StateReason::noting(std::shared_ptr<AdvertisingReportSource> source,
                                                             std::shared_ptr<StateReason> reason) {
  return std::make_shared<NotedSource>(std::move(source), std::move(reason));
}

Result<Hearing> openHearing(const Settings& settings, std::function<void()> onEnd) {
  if (settings.air) return static_cast<Air&>(*settings.air).hearing();
  auto source =
      platform::openSource(settings.source, {.onEnd = std::move(onEnd), .onMessage = settings.onMessage});
  if (source && !settings.record.empty())
    source = platform::recordTo(settings.record, *std::move(source), settings.onMessage);
  if (!source) return source.error();
  auto reason = std::make_shared<StateReason>();
  auto reports = StateReason::noting(source->reports, reason);
  const auto& dispatch = source->loop->dispatch();
  return Hearing{.dispatch = dispatch,
                 .bluetooth = platform::RadioService::make(std::move(reports), dispatch, settings.onMessage),
                 .reason = std::move(reason),
                 .loop = source->loop};
}

}  // namespace brenloft
