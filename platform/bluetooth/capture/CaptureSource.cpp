#include "platform/bluetooth/capture/CaptureSource.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>
#include <vector>

#include "platform/bluetooth/QueuedSource.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace platform {
namespace {

// The clock of a capture may jump by years, as on a board that learns the date while it records. Whatever
// repeats, such as ranging, would run for every second of that.
constexpr std::chrono::hours kLongestGap(24);
// Virtual time stays below half of what it can count.
constexpr dispatch_time_t kLatestInstant{int64_t{1} << 62};
constexpr uint64_t kProgressSteps = 100;
// Rounds that what the last record set going may take; a chain of blocks without an end must not go on for
// ever.
constexpr int kMaximumRounds = 10'000;
// The same on real time, where nobody can tell whether other queues are done; also for a scan that ends and
// begins anew.
constexpr dispatch_time_t kRealTimeGrace = std::chrono::milliseconds(100);

dispatch_time_t timeBetween(Date earlier, Date later) {
  if (later <= earlier) return dispatch_time_t::zero();
  // In microseconds: dates are within the years 1 to 9999, too far apart for nanoseconds.
  return std::min<Date::duration>(later - earlier, kLongestGap);
}

/// Its reading may wait for a pipe, so it is unguarded.
class Replay final : public QueuedSource<CaptureSource> {
 public:
  Replay(CaptureSourceOptions options, const std::shared_ptr<DispatchService>& dispatch)
      : QueuedSource(dispatch, "capture"),
        options_(std::move(options)),
        clock_(std::dynamic_pointer_cast<VirtualDispatch>(dispatch)) {}

  Result<> load() {
    const auto keep = [this](const CaptureDiagnostic& diagnostic) { diagnostics_.push_back(diagnostic); };
    auto reader = CaptureReader::open(options_.path, keep, options_.stop);
    if (!reader) return reader.error();
    reader_ = *std::move(reader);
    next_ = reader_->next();
    time_ = reader_->time();
    if (next_ != CaptureReader::Next::end) followDate();
    return {};
  }

  void startScan(const std::vector<CBUUID>&) override {
    isScanning_ = true;
    queue()->async(unguarded(&Replay::scanStarted));
  }
  void stopScan() override { isScanning_ = false; }

 private:
  void afterwards(dispatch_time_t delay, void (Replay::*operation)()) {
    if (delay > dispatch_time_t::zero())
      dispatch().after(delay, queue(), unguarded(operation));
    else
      queue()->async(unguarded(operation));
  }

  void didOpen() override {
    isPowered_ = true;
    announce({CBManagerState::poweredOn, {}});
    afterwards({}, &Replay::scanStarted);
  }

  void scanStarted() {
    if (!isPowered_ || !isScanning_) return;
    if (isHeld_) return deliver();
    if (std::exchange(hasBegun_, true)) return;
    due_ = dispatch().now();
    if (next_ == CaptureReader::Next::skipped)
      advance();
    else
      schedule();
  }

  /// Reads on to the next record that matters; the time that lies between adds up.
  void advance() {
    do {
      next_ = reader_->next();
      if (next_ == CaptureReader::Next::end) break;
      due_ = std::min(due_ + timeBetween(time_, reader_->time()), kLatestInstant);
      time_ = reader_->time();
    } while (next_ == CaptureReader::Next::skipped);
    showProgress();
    schedule();
  }

  void schedule() {
    const bool takesTime = clock_ || options_.paced;
    afterwards(takesTime ? due_ - dispatch().now() : dispatch_time_t::zero(),
               next_ == CaptureReader::Next::end ? &Replay::finish : &Replay::deliver);
  }

  void deliver() {
    if (!diagnostics_.empty()) reportDiagnostics();
    followDate();
    if (next_ == CaptureReader::Next::state) return changeState();
    if (!isOn_) return advance();
    if (!isScanning_) return hold();
    ++heldRecords_;  // lets a pending `letGo` know that its record is done
    isHeld_ = false;
    guarded([this] { reader_->read([this](const AdvertisingReport& heard) { report(heard); }); });
    if (!diagnostics_.empty()) reportDiagnostics();
    advance();
  }

  void changeState() {
    isOn_ = reader_->radioState().state == CBManagerState::poweredOn;
    guarded([this] { announce(reader_->radioState()); });
    advance();
  }

  /// A record that nobody listens to waits for a new scan, until time goes on.
  void hold() {
    isHeld_ = true;
    if (!clock_ && !options_.paced) return;
    dispatch().after(clock_ ? dispatch_time_t(1) : kRealTimeGrace, queue(),
                     unguarded(&Replay::letGo, heldRecords_));
  }
  void letGo(uint64_t held) {
    if (held != heldRecords_) return;
    ++heldRecords_;
    isHeld_ = false;
    advance();
  }

  void finish() {
    if (!diagnostics_.empty()) reportDiagnostics();
    if (!clock_) {
      later(kRealTimeGrace, &Replay::end);
      return;
    }
    followDate();
    const auto due = clock_->nextDue();
    if (due && *due <= clock_->now() && ++rounds_ < kMaximumRounds)
      return queue()->async(unguarded(&Replay::finish));
    end();
  }
  void end() { notify(options_.onEnd); }

  void followDate() {
    if (clock_ && clock_->date() != time_) clock_->setDate(time_);
  }

  void reportDiagnostics() {
    for (const auto& diagnostic : std::exchange(diagnostics_, {})) notify(options_.onDiagnostic, diagnostic);
  }

  void showProgress() {
    const auto size = reader_->size();
    if (!size || reader_->position() < progress_) return;
    progress_ = reader_->position() + *size / kProgressSteps + 1;
    notify(options_.onProgress, reader_->position(), *size);
  }

  template <class Handler, class... Arguments>
  void notify(const Handler& handler, const Arguments&... arguments) {
    guarded([&] {
      if (handler) handler(arguments...);
    });
  }

  CaptureSourceOptions options_;
  std::shared_ptr<VirtualDispatch> clock_;  // null on real time
  std::atomic<bool> isScanning_ = false;

  // Everything below is used on the queue only.
  std::unique_ptr<CaptureReader> reader_;
  std::vector<CaptureDiagnostic> diagnostics_;
  CaptureReader::Next next_ = CaptureReader::Next::end;
  Date time_;              // of the record that comes next
  dispatch_time_t due_{};  // its instant
  bool isPowered_ = false;
  bool isOn_ = true;  // as the capture's last state says
  bool hasBegun_ = false;
  bool isHeld_ = false;
  uint64_t heldRecords_ = 0;
  uint64_t progress_ = 0;
  int rounds_ = 0;
};

}  // namespace

Result<std::shared_ptr<CaptureSource>> CaptureSource::make(CaptureSourceOptions options,
                                                           const std::shared_ptr<DispatchService>& dispatch) {
  auto replay = std::make_shared<Replay>(std::move(options), dispatch);
  if (const auto loaded = replay->load(); !loaded) return loaded.error();
  return replay;
}

}  // namespace platform
