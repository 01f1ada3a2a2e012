#include "platform/bluetooth/radios/ScanWatchdog.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/bluetooth/HandlerGate.h"

namespace platform {
namespace {

std::string secondsText(dispatch_time_t duration) {
  return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(duration).count()) + " s";
}

/// Reports between the source's queue and the watchdog's. The source is not held back: it stops and closes on
/// the queue that would wait.
class Backlog {
 public:
  bool add() {
    if (waiting_.fetch_add(1) < kMostWaitingReports) return true;
    --waiting_;
    ++dropped_;
    return false;
  }
  void remove() { --waiting_; }
  uint64_t droppedCount() const { return dropped_; }

 private:
  std::atomic<int> waiting_ = 0;
  std::atomic<uint64_t> dropped_ = 0;
};

/// Everything private lives on `queue_`, where each block passes `gate_`; `closeSource` runs when the gate is
/// closed and empty.
class ScanWatchdog : public AdvertisingReportSource, public std::enable_shared_from_this<ScanWatchdog> {
 public:
  explicit ScanWatchdog(ScanWatchdogOptions options)
      : options_(std::move(options)),
        queue_(options_.dispatch->createQueue("platform.bluetooth.watchdog")),
        timer_(options_.dispatch->createTimer(queue_)),
        gate_([this] { closeSource(); }) {}

  ~ScanWatchdog() override { gate_.close(); }
  ScanWatchdog(const ScanWatchdog&) = delete;
  ScanWatchdog& operator=(const ScanWatchdog&) = delete;

  void open(ReportHandler onReport, StateHandler onState) override {
    gate_.open(std::move(onReport), std::move(onState));
    timer_->setEventHandler([weak = weak_from_this()] { pass(weak, &ScanWatchdog::check); });
    timer_->resume();
    post(&ScanWatchdog::openSource);
  }

  void startScan(const std::vector<CBUUID>& services) override {
    post([services](ScanWatchdog& self) { self.want(services); });
  }

  void stopScan() override {
    post([](ScanWatchdog& self) { self.want(std::nullopt); });
  }

  void close() override { gate_.close(); }

 private:
  /// For blocks of the queue: runs one, unless the watchdog is closed or gone.
  template <class Block>
  static void pass(const std::weak_ptr<ScanWatchdog>& weak, const Block& block) {
    if (const auto self = weak.lock()) self->gate_.call([&] { std::invoke(block, *self); });
  }

  template <class Block>
  void post(Block block) {
    queue_->async([weak = weak_from_this(), block = std::move(block)] { pass(weak, block); });
  }

  /// For what a source says, on its own thread, which never holds the watchdog: dropped once that source has
  /// been replaced.
  template <class Block>
  auto ofThisSource(Block block) {
    return [weak = weak_from_this(), source = opened_, block](const auto&... said) {
      pass(weak, [&](ScanWatchdog& self) {
        if (self.opened_ == source) std::invoke(block, self, said...);
      });
    };
  }

  void openSource() {
    source_ = options_.makeSource();
    source_->open(
        [take = ofThisSource(&ScanWatchdog::heard), queue = queue_,
         backlog = backlog_](const AdvertisingReport& heard) {
          if (!backlog->add()) return;
          queue->async([take, backlog, report = heard, data = toData(heard.data)]() mutable {
            backlog->remove();
            report.data = data;
            take(report);
          });
        },
        [take = ofThisSource(&ScanWatchdog::stateChanged), queue = queue_](const RadioState& state) {
          queue->async([take, state] { take(state); });
        });
    if (wanted_) source_->startScan(*wanted_);
  }

  void closeSource() {
    timer_->cancel();
    if (const auto source = std::exchange(source_, nullptr)) source->close();
    if (const auto dropped = backlog_->droppedCount(); dropped > 0)
      say(std::to_string(dropped) + " reports were dropped because they came faster than they were taken");
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
    gate_.state(state);
  }

  void heard(const AdvertisingReport& report) {
    const auto now = options_.dispatch->now();
    const bool isWell = restarts_ > 0 && now - lastRestart_ >= options_.silence;
    if (isWell) restarts_ = 0;
    if (std::exchange(isSilent_, false))
      gate_.state({state_, "hearing again after " + secondsText(now - lastHeard_)});
    lastHeard_ = now;
    if (isWell) arm();  // the pause that it was armed for counts no more
    if (!toldOfDrops_ && backlog_->droppedCount() > 0) {
      toldOfDrops_ = true;
      say("reports come faster than they are taken: what exceeds " + std::to_string(kMostWaitingReports) +
          " waiting ones is dropped");
    }
    gate_.report(report);
  }

  void say(const std::string& line) const {
    if (options_.onDiagnostic) options_.onDiagnostic(line);
  }

  bool shouldHear() const { return wanted_ && state_ == CBManagerState::poweredOn; }

  void beginWatch() {
    if (!shouldHear()) return;
    watchedSince_ = options_.dispatch->now();
    if (!isSilent_) lastHeard_ = watchedSince_;
    arm();
  }

  /// When the next restart would be due. Reports move it without touching the timer, which looks again.
  dispatch_time_t due() const {
    const auto afterSilence = std::max(lastHeard_, watchedSince_) + options_.silence;
    return restarts_ == 0 ? afterSilence : std::max(afterSilence, lastRestart_ + pause());
  }

  /// The pause after the newest restart.
  std::chrono::seconds pause() const {
    return std::min(options_.silence * (1 << std::min(restarts_, 16)), options_.longestPause);
  }

  void arm() { timer_->setTimer(due(), DISPATCH_TIME_FOREVER, std::chrono::milliseconds(100)); }

  void check() {
    if (!shouldHear()) return;
    if (options_.dispatch->now() >= due()) restart();
    if (shouldHear()) arm();
  }

  void restart() {
    const auto now = options_.dispatch->now();
    isSilent_ = true;
    lastRestart_ = now;
    ++restarts_;
    const std::string silence = "nothing heard for " + secondsText(now - lastHeard_);
    const std::string next = "; the next try comes in " + secondsText(pause());
    if (restarts_ == 1) {
      source_->stopScan();
      source_->startScan(*wanted_);
      gate_.state({state_, silence + ": the scan is started anew" + next});
      return;
    }
    ++opened_;
    source_->close();
    state_ = CBManagerState::resetting;
    gate_.state({state_, silence + ": the radio is opened anew" + next});
    if (!gate_.isClosed()) openSource();
  }

  const ScanWatchdogOptions options_;
  const dispatch_queue_t queue_;
  const dispatch_source_t timer_;
  const std::shared_ptr<Backlog> backlog_ = std::make_shared<Backlog>();
  HandlerGate gate_;

  std::shared_ptr<AdvertisingReportSource> source_;
  int opened_ = 0;  ///< tells the sources apart
  std::optional<std::vector<CBUUID>> wanted_;
  CBManagerState state_ = CBManagerState::unknown;

  dispatch_time_t lastHeard_{};
  dispatch_time_t watchedSince_{};
  dispatch_time_t lastRestart_{};
  int restarts_ = 0;  ///< since the scan was last well
  bool isSilent_ = false;
  bool toldOfDrops_ = false;
};

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeScanWatchdog(ScanWatchdogOptions options) {
  return std::make_shared<ScanWatchdog>(std::move(options));
}

}  // namespace platform
