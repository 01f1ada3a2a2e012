#include "platform/bluetooth/radios/ScanWatchdog.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "platform/bluetooth/Backoff.h"
#include "platform/bluetooth/QueuedSource.h"

namespace platform {
namespace {

std::string secondsText(dispatch_time_t duration) {
  return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(duration).count()) + " s";
}

class ScanWatchdog final : public QueuedSource<> {
 public:
  explicit ScanWatchdog(ScanWatchdogOptions options)
      : QueuedSource(options.dispatch, "radio", options.queue),
        options_(std::move(options)),
        pauses_(options_.silence * 2, options_.longestPause) {}
  ~ScanWatchdog() override { close(); }

  void startScan(const std::vector<CBUUID>& services) override {
    post(&ScanWatchdog::want, std::optional(services));
  }
  void stopScan() override { post(&ScanWatchdog::want, std::optional<std::vector<CBUUID>>()); }

 private:
  void didOpen() override {
    timer_ = makeTimer(&ScanWatchdog::check);
    openSource();
  }

  void didClose() override {
    if (source_) source_->close();
  }

  void openSource() {
    beginConnection();
    source_ = options_.makeSource(queue());
    source_->open(within(&ScanWatchdog::heard), within(&ScanWatchdog::stateChanged));
    if (wanted_) source_->startScan(*wanted_);
  }

  void want(std::optional<std::vector<CBUUID>> services) {
    const bool wasHearing = shouldHear();
    wanted_ = std::move(services);
    if (!source_) return;
    if (wanted_)
      source_->startScan(*wanted_);
    else
      source_->stopScan();
    if (!wasHearing) beginWatch();
  }

  void stateChanged(const RadioState& state) {
    const bool wasHearing = shouldHear();
    state_ = state.state;
    if (!wasHearing) beginWatch();
    announce(state);
  }

  void heard(const AdvertisingReport& heard) {
    const auto now = dispatch().now();
    const bool isWell = restarts_ > 0 && now - lastRestart_ >= options_.silence;
    if (isWell) restartsAreOver();
    if (std::exchange(isSilent_, false))
      announce({state_, "hearing again after " + secondsText(now - lastHeard_)});
    lastHeard_ = now;
    if (isWell) arm();  // the pause that it was armed for counts no more
    report(heard);
  }

  void restartsAreOver() {
    restarts_ = 0;
    pauses_.reset();
  }

  bool shouldHear() const { return wanted_ && state_ == CBManagerState::poweredOn; }

  void beginWatch() {
    if (!shouldHear()) return;
    watchedSince_ = dispatch().now();
    if (!isSilent_) lastHeard_ = watchedSince_;
    arm();
  }

  /// When the next restart would be due. Reports move it without touching the timer, which looks again.
  dispatch_time_t due() const {
    const auto afterSilence = std::max(lastHeard_, watchedSince_) + options_.silence;
    return restarts_ == 0 ? afterSilence : std::max(afterSilence, lastRestart_ + pause_);
  }

  void arm() { timer_->setTimer(due(), DISPATCH_TIME_FOREVER, std::chrono::milliseconds(100)); }

  void check() {
    if (!shouldHear()) return;
    if (dispatch().now() >= due()) restart();
    if (shouldHear()) arm();
  }

  void restart() {
    const auto now = dispatch().now();
    isSilent_ = true;
    lastRestart_ = now;
    ++restarts_;
    pause_ = pauses_.next();
    const std::string silence = "nothing heard for " + secondsText(now - lastHeard_);
    const std::string next = "; the next try comes in " + secondsText(pause_);
    if (restarts_ == 1) {
      source_->stopScan();
      source_->startScan(*wanted_);
      announce({state_, silence + ": the scan is started anew" + next});
      return;
    }
    beginConnection();  // what the old one still says counts no more
    source_->close();
    state_ = CBManagerState::resetting;
    announce({state_, silence + ": the radio is opened anew" + next});
    if (!isClosed()) openSource();
  }

  const ScanWatchdogOptions options_;
  dispatch_source_t timer_;
  std::shared_ptr<AdvertisingReportSource> source_;
  std::optional<std::vector<CBUUID>> wanted_;
  CBManagerState state_ = CBManagerState::unknown;

  dispatch_time_t lastHeard_{};
  dispatch_time_t watchedSince_{};
  dispatch_time_t lastRestart_{};
  Backoff pauses_;
  dispatch_time_t pause_{};  ///< after the newest restart
  int restarts_ = 0;         ///< since the scan was last well
  bool isSilent_ = false;
};

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeScanWatchdog(ScanWatchdogOptions options) {
  return std::make_shared<ScanWatchdog>(std::move(options));
}

}  // namespace platform
