#include "tools/brenloft/SourceMonitor.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/Messages.h"

namespace brenloft {

class SourceMonitor::WrappedSource : public platform::AdvertisingReportSource {
 public:
  WrappedSource(std::shared_ptr<SourceMonitor> monitor, std::shared_ptr<AdvertisingReportSource> source)
      : monitor_(std::move(monitor)), source_(std::move(source)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(monitor_->tee(std::move(onReport)),
                  [monitor = monitor_, onState = std::move(onState)](const platform::RadioState& state) {
                    monitor->changed(state);
                    onState(state);
                  });
  }
  void startScan(const std::vector<platform::CBUUID>& services) override {
    monitor_->want(services);
    source_->startScan(services);
  }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  std::shared_ptr<SourceMonitor> monitor_;
  std::shared_ptr<AdvertisingReportSource> source_;
};

SourceMonitor::SourceMonitor(SourceMonitorOptions options)
    : options_(std::move(options)),
      takesReports_(!options_.record.empty() || (options_.isRadio && options_.exitTime)) {
  if (options_.isRadio && options_.exitTime) warning_.emplace(*options_.exitTime);
}

std::shared_ptr<SourceMonitor> SourceMonitor::make(SourceMonitorOptions options) {
  std::error_code absent;
  if (std::filesystem::equivalent(options.record, options.capture, absent))
    throw Failure(ExitStatus::usage, "--record would overwrite the capture that is read: " + options.record);
  refuseContainerFile("--record", options.record, options.container);
  return std::shared_ptr<SourceMonitor>(new SourceMonitor(std::move(options)));
}

void SourceMonitor::begin() {
  if (options_.record.empty()) return;
  std::string error;
  const std::scoped_lock lock(mutex_);
  recording_ = platform::BtsnoopWriter::create(options_.record, error, options_.stop);
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
}

std::shared_ptr<platform::AdvertisingReportSource> SourceMonitor::wrap(
    std::shared_ptr<platform::AdvertisingReportSource> source) {
  return std::make_shared<WrappedSource>(shared_from_this(), std::move(source));
}

platform::AdvertisingReportSource::ReportHandler SourceMonitor::tee(
    platform::AdvertisingReportSource::ReportHandler onReport) {
  return [monitor = shared_from_this(),
          onReport = std::move(onReport)](const platform::AdvertisingReport& report) {
    monitor->heard(report);
    onReport(report);
  };
}

void SourceMonitor::want(const std::vector<platform::CBUUID>& services) {
  const std::scoped_lock lock(mutex_);
  if (warning_) warning_->want(services);
}

void SourceMonitor::heard(const platform::AdvertisingReport& report) {
  wasHeard_ = true;
  if (!takesReports_) return;
  std::string error;
  std::optional<std::string> warning;
  {
    const std::scoped_lock lock(mutex_);
    if (recording_) error = recording_->write(report);
    if (!error.empty()) failure_.emplace(ExitStatus::failed, error);
    if (warning_) warning = warning_->heard(report);
  }
  reportUnrecorded(error);
  if (warning && options_.onMessage) options_.onMessage(*warning);
}

void SourceMonitor::reportUnrecorded(const std::string& error) {
  if (!error.empty() && options_.onMessage) options_.onMessage(error + "; from here on nothing is recorded");
}

void SourceMonitor::announce(const platform::RadioState& state) {
  std::string error;
  {
    const std::scoped_lock lock(mutex_);
    if (recording_) error = recording_->write(options_.date(), state);
    if (!error.empty()) failure_.emplace(ExitStatus::failed, error);
  }
  reportUnrecorded(error);
  if (options_.onRadioState) options_.onRadioState(state);
}

void SourceMonitor::changed(const platform::RadioState& state) {
  // What is no radio is on when it is opened. What it tells later, it was recorded with.
  if (!options_.isRadio) {
    if (std::exchange(wasOpened_, true)) announce(state);
    return;
  }
  const std::string reason = state.reason.empty() ? "the radio cannot be used" : state.reason;
  using platform::CBManagerState;
  if (state.state == CBManagerState::poweredOn) wasPoweredOn_ = true;
  // A radio that worked once may come back; one that never did ends the command. bluetoothd says that its
  // adapter is on before it is asked whether this user may hear.
  if (state.state == CBManagerState::unauthorized && !wasHeard_)
    return fail(ExitStatus::notPermitted, reason);
  if (state.state == CBManagerState::unsupported && !wasPoweredOn_)
    return fail(ExitStatus::noRadio, noRadioLine(reason));
  announce(state);
}

void SourceMonitor::fail(ExitStatus status, const std::string& line) {
  {
    const std::scoped_lock lock(mutex_);
    failure_.emplace(status, line);
  }
  if (options_.onUnusable) options_.onUnusable();
}

void SourceMonitor::flush() {
  const std::scoped_lock lock(mutex_);
  if (recording_) recording_->flush();
}

void SourceMonitor::finish() {
  const std::scoped_lock lock(mutex_);
  const std::string error = recording_ ? recording_->flush() : std::string();
  recording_.reset();
  if (failure_) throw Failure(*failure_);
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
}

}  // namespace brenloft
