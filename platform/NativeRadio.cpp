#include "platform/NativeRadio.h"

#include <chrono>
#include <optional>
#include <utility>

#include "platform/bluetooth/Backoff.h"
#include "platform/bluetooth/QueuedSource.h"

namespace platform {
namespace {

constexpr std::chrono::seconds kFirstPause{2};
constexpr std::chrono::seconds kLongestPause{60};

using Services = std::vector<CBUUID>;
using Look = std::function<RadioSourceResult(const RadioSourceOptions&)>;

class NativeRadio final : public QueuedSource<> {
 public:
  NativeRadio(std::shared_ptr<DispatchService> dispatch, LogSink log, Look look)
      : QueuedSource(dispatch, "radio"),
        options_{.dispatch = std::move(dispatch), .onDiagnostic = log, .queue = queue()},
        log_(std::move(log)),
        look_(std::move(look)) {}
  ~NativeRadio() override { close(); }

  void startScan(const Services& services) override { post(&NativeRadio::want, std::optional(services)); }
  void stopScan() override { post(&NativeRadio::want, std::optional<Services>()); }

 private:
  void didOpen() override { look(); }
  void didClose() override {
    if (radio_) radio_->close();
  }

  void want(std::optional<Services> services) {
    wanted_ = std::move(services);
    if (!radio_) return;
    if (wanted_)
      radio_->startScan(*wanted_);
    else
      radio_->stopScan();
  }

  /// Not a step: it may wait for the system bus, and `close` does not.
  void look() {
    queue()->async(
        [look = look_, options = options_, found = within(&NativeRadio::found)] { found(look(options)); });
  }

  void found(const RadioSourceResult& result) {
    if (!result) {
      announceError(result.error());
      return later(pauses_.next(), &NativeRadio::look);
    }
    radio_ = *result;
    radio_->open(within([this](const AdvertisingReport& heard) { report(heard); }),
                 within(&NativeRadio::announceAndLog));
    if (wanted_) radio_->startScan(*wanted_);
  }

  void announceError(const Error& error) {
    if (error.text == lastError_) return;
    lastError_ = error.text;
    const bool forbidden = error.kind == Error::Kind::notPermitted;
    announceAndLog({forbidden ? CBManagerState::unauthorized : CBManagerState::unsupported, error.text});
  }

  void announceAndLog(const RadioState& state) {
    if (log_ && !state.reason.empty()) log_(state.reason);
    announce(state);
  }

  const RadioSourceOptions options_;
  const LogSink log_;
  const Look look_;
  Backoff pauses_{kFirstPause, kLongestPause};
  std::string lastError_;
  std::optional<Services> wanted_;
  std::shared_ptr<AdvertisingReportSource> radio_;
};

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeNativeRadio(
    std::shared_ptr<DispatchService> dispatch, LogSink log,
    std::function<RadioSourceResult(const RadioSourceOptions&)> look) {
  return std::make_shared<NativeRadio>(std::move(dispatch), std::move(log), std::move(look));
}

}  // namespace platform
