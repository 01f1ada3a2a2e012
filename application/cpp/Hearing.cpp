#include "application/cpp/Hearing.h"

#include <utility>
#include <vector>

#include "application/cpp/Air.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/sources/Recording.h"

namespace brenloft {

using platform::AdvertisingReportSource;

class RadioStates::NotedSource final : public AdvertisingReportSource {
 public:
  NotedSource(std::shared_ptr<AdvertisingReportSource> source, std::shared_ptr<RadioStates> states)
      : source_(std::move(source)), states_(std::move(states)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(std::move(onReport), [states = states_, onState = std::move(onState)](const auto& state) {
      states->tell(state);
      onState(state);
    });
  }
  void startScan(const std::vector<platform::CBUUID>& services) override { source_->startScan(services); }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  const std::shared_ptr<AdvertisingReportSource> source_;
  const std::shared_ptr<RadioStates> states_;
};

std::shared_ptr<const RadioStates::Handler> RadioStates::watch(Handler handler) {
  auto watching = std::make_shared<const Handler>(std::move(handler));
  const std::scoped_lock lock(mutex_);
  std::erase_if(handlers_, [](const auto& known) { return known.expired(); });
  handlers_.push_back(watching);
  if (newest_) (*watching)(*newest_);
  return watching;
}

void RadioStates::tell(const platform::RadioState& state) {
  const std::scoped_lock lock(mutex_);
  newest_ = state;
  for (const auto& known : handlers_)
    if (const auto handler = known.lock()) (*handler)(state);
}

std::shared_ptr<AdvertisingReportSource> RadioStates::noting(std::shared_ptr<AdvertisingReportSource> source,
                                                             std::shared_ptr<RadioStates> states) {
  return std::make_shared<NotedSource>(std::move(source), std::move(states));
}

Result<Hearing> openHearing(const Settings& settings, std::function<void()> onEnd) {
  if (settings.air) return static_cast<Air&>(*settings.air).hearing();
  auto source =
      platform::openSource(settings.source, {.onEnd = std::move(onEnd), .onMessage = settings.onMessage});
  if (source && !settings.record.empty())
    source = platform::recordTo(settings.record, *std::move(source), settings.onMessage);
  if (!source) return source.error();
  auto states = std::make_shared<RadioStates>();
  auto reports = RadioStates::noting(source->reports, states);
  const auto& dispatch = source->loop->dispatch();
  return Hearing{.dispatch = dispatch,
                 .bluetooth = platform::RadioService::make(std::move(reports), dispatch, settings.onMessage),
                 .states = std::move(states),
                 .loop = source->loop};
}

}  // namespace brenloft
