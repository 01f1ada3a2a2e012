#include "platform/NativeRadio.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "platform/bluetooth/HandlerGate.h"
#include "platform/bluetooth/radios/RadioSource.h"

namespace platform {
namespace {

constexpr std::chrono::seconds kFirstPause{2};
constexpr std::chrono::seconds kLongestPause{60};

// Thread safety: `mutex_` guards everything that changes and is not held over the radio's own operations or
// the handlers.
class NativeRadio final : public AdvertisingReportSource, public std::enable_shared_from_this<NativeRadio> {
 public:
  using Look = std::function<RadioSourceResult(const RadioSourceOptions&)>;

  NativeRadio(std::shared_ptr<DispatchService> dispatch, LogSink log, Look look)
      : dispatch_(std::move(dispatch)),
        log_(std::move(log)),
        find_(std::move(look)),
        queue_(dispatch_->createQueue("NativeRadio")) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    gate_.open(std::move(onReport), std::move(onState));
    queue_->async([self = weak_from_this()] {
      if (const auto radio = self.lock()) radio->look(kFirstPause);
    });
  }

  void startScan(const std::vector<CBUUID>& services) override {
    const auto radio = change([&] { wanted_ = services; });
    if (radio) radio->startScan(services);
  }

  void stopScan() override {
    const auto radio = change([&] { wanted_.reset(); });
    if (radio) radio->stopScan();
  }

  void close() override {
    const auto radio = change([&] { closed_ = true; });
    if (radio) radio->close();
    gate_.close();
  }

 private:
  template <typename Change>
  std::shared_ptr<AdvertisingReportSource> change(const Change& change) {
    const std::scoped_lock lock(mutex_);
    change();
    return radio_;
  }

  void look(std::chrono::seconds pause) {
    if (change([] {}) || isClosed()) return;
    const auto result = find_({.dispatch = dispatch_, .onDiagnostic = log_});
    if (!result.source) {
      tellProblem(*result.problem);
      dispatch_->after(pause, queue_, [self = weak_from_this(), pause] {
        if (const auto radio = self.lock()) radio->look(std::min(pause * 2, kLongestPause));
      });
      return;
    }
    std::optional<std::vector<CBUUID>> wanted;
    {
      const std::scoped_lock lock(mutex_);
      if (closed_) return;
      radio_ = result.source;
      wanted = wanted_;
    }
    result.source->open([this](const AdvertisingReport& report) { gate_.report(report); },
                        [this](const RadioState& state) { tell(state); });
    if (wanted) result.source->startScan(*wanted);
    if (isClosed()) result.source->close();
  }

  void tellProblem(const RadioProblem& problem) {
    if (problem.text == lastProblem_) return;
    lastProblem_ = problem.text;
    const bool forbidden = problem.kind == RadioProblem::Kind::notPermitted;
    tell({forbidden ? CBManagerState::unauthorized : CBManagerState::unsupported, problem.text});
  }

  void tell(const RadioState& state) {
    if (log_ && !state.reason.empty()) log_(state.reason);
    gate_.state(state);
  }

  bool isClosed() {
    const std::scoped_lock lock(mutex_);
    return closed_;
  }

  const std::shared_ptr<DispatchService> dispatch_;
  const LogSink log_;
  const Look find_;
  const dispatch_queue_t queue_;
  HandlerGate gate_;
  std::string lastProblem_;  // on the queue only

  std::mutex mutex_;
  bool closed_ = false;
  std::optional<std::vector<CBUUID>> wanted_;
  std::shared_ptr<AdvertisingReportSource> radio_;
};

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeNativeRadio(
    std::shared_ptr<DispatchService> dispatch, LogSink log,
    std::function<RadioSourceResult(const RadioSourceOptions&)> look) {
  return std::make_shared<NativeRadio>(std::move(dispatch), std::move(log), std::move(look));
}

}  // namespace platform
