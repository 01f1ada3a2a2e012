#include "tools/brenloft/SourceMonitor.h"

#include <filesystem>
#include <system_error>
#include <utility>

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
  return std::shared_ptr<SourceMonitor>(new SourceMonitor(std::move(options)));
}

void SourceMonitor::begin() {
  if (options_.record.empty()) return;
  auto recording = platform::BtsnoopWriter::create(options_.record, options_.stop);
  if (!recording) throw Failure(ExitStatus::failed, recording.error().text);
  const std::scoped_lock lock(mutex_);
  recording_ = *std::move(recording);
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
  platform::Result<> written;
  std::optional<std::string> warning;
  {
    const std::scoped_lock lock(mutex_);
    if (recording_) written = recording_->write(report);
    if (!written) failure_.emplace(ExitStatus::failed, written.error().text);
    if (warning_) warning = warning_->heard(report);
  }
  reportUnrecorded(written);
  if (warning && options_.onMessage) options_.onMessage(*warning);
}

void SourceMonitor::reportUnrecorded(const platform::Result<>& written) {
  if (!written && options_.onMessage)
    options_.onMessage(written.error().text + "; from here on nothing is recorded");
}

void SourceMonitor::announce(const platform::RadioState& state) {
  platform::Result<> written;
  {
    const std::scoped_lock lock(mutex_);
    if (recording_) written = recording_->write(options_.date(), state);
    if (!written) failure_.emplace(ExitStatus::failed, written.error().text);
  }
  reportUnrecorded(written);
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
  const auto written = recording_ ? recording_->flush() : platform::Result<>();
  recording_.reset();
  if (failure_) throw Failure(*failure_);
  if (!written) throw Failure(ExitStatus::failed, written.error().text);
}

}  // namespace brenloft
