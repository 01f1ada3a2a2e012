#include "tools/brenloft/Listener.h"

#include <utility>

namespace brenloft {

class Listener::WrappedSource : public platform::AdvertisingReportSource {
 public:
  WrappedSource(std::shared_ptr<Listener> listener, std::shared_ptr<AdvertisingReportSource> source)
      : listener_(std::move(listener)), source_(std::move(source)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(listener_->tee(std::move(onReport)),
                  [listener = listener_, onState = std::move(onState)](const platform::RadioState& state) {
                    listener->changed(state);
                    onState(state);
                  });
  }
  void startScan(const std::vector<platform::CBUUID>& services) override { source_->startScan(services); }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  std::shared_ptr<Listener> listener_;
  std::shared_ptr<AdvertisingReportSource> source_;
};

Listener::Listener(ListenerOptions options) : options_(std::move(options)) {
  if (options_.isRadio && options_.exitTime) warning_.emplace(*options_.exitTime);
}

std::shared_ptr<Listener> Listener::make(ListenerOptions options) {
  const std::shared_ptr<Listener> listener(new Listener(std::move(options)));
  if (!listener->options_.record.empty()) {
    std::string error;
    listener->recording_ = platform::BtsnoopWriter::create(listener->options_.record, error);
    if (!listener->recording_) throw Failure(ExitStatus::failed, error);
  }
  return listener;
}

std::shared_ptr<platform::AdvertisingReportSource> Listener::wrap(
    std::shared_ptr<platform::AdvertisingReportSource> source) {
  return std::make_shared<WrappedSource>(shared_from_this(), std::move(source));
}

platform::AdvertisingReportSource::ReportHandler Listener::tee(
    platform::AdvertisingReportSource::ReportHandler onReport) {
  return [listener = shared_from_this(),
          onReport = std::move(onReport)](const platform::AdvertisingReport& report) {
    listener->heard(report);
    onReport(report);
  };
}

void Listener::heard(const platform::AdvertisingReport& report) {
  if (!options_.record.empty()) {
    const std::scoped_lock lock(mutex_);
    const std::string error = recording_ ? recording_->write(report) : std::string();
    if (!error.empty()) failure_.emplace(ExitStatus::failed, error);
  }
  if (!warning_) return;
  const auto line = warning_->heard(report);
  if (line && options_.onMessage) options_.onMessage(*line);
}

void Listener::changed(const platform::RadioState& state) {
  if (!options_.isRadio) return;
  if (options_.onRadioState) options_.onRadioState(state);
  using platform::CBManagerState;
  if (state.state == CBManagerState::poweredOn) wasPoweredOn_ = true;
  // A radio that worked once may come back; one that never did is told at once.
  if (wasPoweredOn_) return;
  if (state.state == CBManagerState::unauthorized) fail(ExitStatus::notPermitted, state.reason);
  if (state.state == CBManagerState::unsupported) fail(ExitStatus::noRadio, state.reason);
}

void Listener::fail(ExitStatus status, const std::string& line) {
  {
    const std::scoped_lock lock(mutex_);
    failure_.emplace(status, line.empty() ? "the radio cannot be used" : line);
  }
  if (options_.onUnusable) options_.onUnusable();
}

void Listener::finish() {
  const std::scoped_lock lock(mutex_);
  const std::string error = recording_ ? recording_->flush() : std::string();
  recording_.reset();
  if (failure_) throw Failure(*failure_);
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
}

}  // namespace brenloft
