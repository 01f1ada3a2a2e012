#include "gateway/history/HistoryWriter.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "gateway/history/HistoryStore.h"
#include "gateway/history/Thinner.h"

namespace brenloft {
namespace {

using history::HistoryStore;
using history::NewEvent;
using history::NewReading;
using history::NewRecord;
using history::Subject;

// Routine readings are committed once in so long, for the sake of SD cards; who follows a beacon that is
// heard now and then does not wait for that, but only for what is heard with it.
constexpr std::chrono::milliseconds kBatchTime{850};
constexpr std::chrono::milliseconds kGatherTime{200};
constexpr std::size_t kBatchRows = 4096;
constexpr std::chrono::seconds kRetryTime{5};
// About 8 MB.
constexpr std::size_t kMostReadingsWaiting = 65'536;
constexpr std::size_t kMostWaiting = kMostReadingsWaiting + 4096;
constexpr std::size_t kMostKnown = 65'536;
constexpr std::chrono::minutes kPruneTime{10};
// And where nothing is written.
constexpr std::chrono::hours kQuietPruneTime{1};

int32_t difference(const std::optional<int32_t>& shown, const std::optional<int32_t>& raw) {
  return shown && raw ? *shown - *raw : 0;
}

history::Offsets offsetsOf(const Reading& reading) {
  const Quantities& shown = reading.shown;
  const Quantities& raw = reading.raw;
  return {difference(shown.temperature, raw.temperature), difference(shown.humidity, raw.humidity),
          difference(shown.battery, raw.battery)};
}

}  // namespace

/// Two locks: `mutex_` guards what waits and is held for moments; `fileMutex_` guards the file and is held
/// while the disk is waited for. Only `flush` and the end take the second on the gateway's queue.
class HistoryWriter::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::filesystem::path file, const HistoryOptions& options,
       std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t handlerQueue,
       StateHandler handler)
      : file_(std::move(file)),
        options_(options),
        thinner_(options),
        dispatch_(std::move(dispatch)),
        queue_(dispatch_->createQueue("history")),
        handlerQueue_(std::move(handlerQueue)),
        handler_(std::move(handler)) {}

  /// A full disk is a state; what else is wrong is an error.
  platform::Result<> open() {
    bool isFull = false;
    const auto opened = platform::resultOf([&] {
      try {
        const std::scoped_lock lock(fileMutex_);
        store_ = std::make_unique<HistoryStore>(file_, options_);
      } catch (const platform::SQLiteFailure& failure) {
        isFull = failure.isFull();
        throw;
      }
    });
    if (!opened && !isFull) return opened;
    if (isFull) stop(opened.error().text);
    post([](Core& core) { core.prune(); });
    return {};
  }

  void close() {
    const std::scoped_lock lock(fileMutex_);
    if (std::exchange(isClosed_, true)) return;
    drain();
    store_.reset();
  }

  void accept(const Reading& reading) {
    if (reading.verdict != Verdict::plausible) return count(&Counts::implausible);
    Known& known = knownOf(reading.beacon);
    if (!thinner_.keeps(reading, known.last)) return count(&Counts::thinned);
    const bool isUrgent = reading.shown.emergency.value_or(0) != 0;
    push(NewReading{known.subject, reading.heard, reading.rssi, reading.raw, offsetsOf(reading)},
         isUrgent ? When::now : When::soon, reading.heard);
  }

  void accept(const BeaconEvent& event, std::optional<KeptState> state) {
    auto subject = event.beacon ? knownOf(*event.beacon).subject : nullptr;
    push(std::make_unique<NewEvent>(NewEvent{std::move(subject), event, std::move(state)}), When::now,
         event.heard);
  }

  void keep(const KeptState& state) {
    push(std::make_unique<NewEvent>(NewEvent{nullptr, std::nullopt, state}), When::soon, {});
  }

  void flush() {
    const std::scoped_lock lock(fileMutex_);
    drain();
  }

  State state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }

  Counts counts() const {
    const std::scoped_lock lock(mutex_);
    Counts counts = counts_;
    counts.waiting = waiting_;
    return counts;
  }

 private:
  struct Known {
    std::shared_ptr<Subject> subject;
    std::optional<Thinner::Last> last;
  };
  enum class When { soon, now };

  // On the gateway's queue.
  Known& knownOf(const BeaconId& id) {
    const auto found = known_.find(id);
    if (found != known_.end()) return found->second;
    // Addresses that change for ever are no reason to grow for ever.
    if (known_.size() == kMostKnown) known_.clear();
    return known_.emplace(id, Known{std::make_shared<Subject>(id), {}}).first->second;
  }

  void count(uint64_t Counts::*what) {
    const std::scoped_lock lock(mutex_);
    ++(counts_.*what);
  }

  void push(NewRecord record, When when, platform::Date heard) {
    const std::scoped_lock lock(mutex_);
    const bool isReading = std::holds_alternative<NewReading>(record);
    if (waiting_ >= (isReading ? kMostReadingsWaiting : kMostWaiting)) {
      ++counts_.dropped;
      if (lost_.count++ == 0) lost_.since = heard;
      return;
    }
    ++waiting_;
    pending_.push_back(std::move(record));
    // Something new must come before the next try, so that virtual time comes to an end.
    if (!state_.isWorking) return writeAfter(kRetryTime);
    schedule(when == When::now || pending_.size() >= kBatchRows);
  }

  // With the lock held.
  void schedule(bool isNow) {
    if (isNow && !std::exchange(isPosted_, true)) post([](Core& core) { core.write(); });
    if (isNow || isTimed_) return;
    const auto next = lastWrite_ ? *lastWrite_ + kBatchTime - dispatch_->now() : kGatherTime;
    writeAfter(std::max<std::chrono::nanoseconds>(next, kGatherTime));
  }

  // With the lock held. A write before then has taken what this one waits for: it must not become a commit
  // of its own, or each emergency would add one to every second that follows.
  void writeAfter(std::chrono::nanoseconds delay) {
    if (std::exchange(isTimed_, true)) return;
    after(delay, [timer = ++timer_](Core& core) {
      if (core.isRunning(timer)) core.write();
    });
  }

  bool isRunning(uint64_t timer) const {
    const std::scoped_lock lock(mutex_);
    return isTimed_ && timer == timer_;
  }

  template <typename Work>
  void post(Work work) {
    queue_->async([weak = weak_from_this(), work] {
      if (const auto self = weak.lock()) work(*self);
    });
  }
  template <typename Work>
  void after(std::chrono::nanoseconds delay, Work work) {
    dispatch_->after(delay, queue_, [weak = weak_from_this(), work] {
      if (const auto self = weak.lock()) work(*self);
    });
  }

  void write() {
    const std::scoped_lock lock(fileMutex_);
    {
      const std::scoped_lock pending(mutex_);
      isPosted_ = isTimed_ = false;
      lastWrite_ = dispatch_->now();
    }
    if (isClosed_) return;
    drain();
    if (isPruneDue()) post([](Core& core) { core.prune(); });
  }

  // With the file's lock held. What failed before goes first.
  void drain() {
    while (takeBatch()) {
      const auto written = platform::resultOf([&] {
        if (!store_) store_ = std::make_unique<HistoryStore>(file_, options_);
        store_->write(batch_);
      });
      if (!written) {
        // Opened anew, whatever was wrong: the file may be another by then.
        store_.reset();
        return stop(written.error().text);
      }
      finishBatch();
    }
  }

  // False when nothing waits.
  bool takeBatch() {
    if (!batch_.empty()) return true;
    const std::scoped_lock lock(mutex_);
    batch_.swap(pending_);
    // What was lost was lost after what waited.
    if (const Lost lost = std::exchange(lost_, {}); lost.count != 0) {
      ++waiting_;
      BeaconEvent gap{.beacon = std::nullopt, .heard = lost.since, .kind = BeaconEvent::Kind::gap};
      gap.count = lost.count;
      batch_.emplace_back(std::make_unique<NewEvent>(NewEvent{nullptr, std::move(gap), std::nullopt}));
    }
    return !batch_.empty();
  }

  void finishBatch() {
    pruneLater();
    rowsUntilPrune_ -= std::min<std::size_t>(rowsUntilPrune_, batch_.size());
    const std::scoped_lock lock(mutex_);
    counts_.written += batch_.size();
    waiting_ -= batch_.size();
    batch_.clear();
    announce({});
  }

  void stop(const std::string& reason) {
    const std::scoped_lock lock(mutex_);
    announce({.isWorking = false, .reason = reason});
  }

  // With the lock held.
  void announce(const State& state) {
    if (state == std::exchange(state_, state) || !handler_) return;
    handlerQueue_->async([weak = weak_from_this(), state] {
      if (const auto self = weak.lock()) self->handler_(state);
    });
  }

  bool isPruneDue() const {
    if (!options_.keep && !options_.keepSize) return false;
    return rowsUntilPrune_ == 0 || dispatch_->now() - lastPrune_ >= kPruneTime;
  }

  // In small steps, so that what comes meanwhile is written in between.
  void prune() {
    if (!options_.keep && !options_.keepSize) return;
    const std::scoped_lock lock(fileMutex_);
    lastPrune_ = dispatch_->now();
    rowsUntilPrune_ = history::kRoundSize;
    if (isClosed_ || !store_) return;
    const platform::Date now = dispatch_->date();
    history::PruneGoal goal{.size = options_.keepSize};
    if (options_.keep) goal.before = now - *options_.keep;
    bool isMore = false;
    // Where it fails, the next commit will as well, and tells.
    static_cast<void>(platform::resultOf([&] {
      isMore = store_->pruneStep(goal, now);
      if (!isMore && store_->vacuumStep(false)) isMore = hasVacuumed_ = true;
      if (!isMore && !store_->isEmpty()) pruneLater();
      // The file shrinks when the log is moved into it.
      if (!isMore && std::exchange(hasVacuumed_, false)) store_->moveLog();
    }));
    if (isMore) post([](Core& core) { core.prune(); });
  }

  // With the file's lock held. Rows grow old also while none are written; without rows virtual time has an
  // end.
  void pruneLater() {
    if (!options_.keep || std::exchange(isPruneTimed_, true)) return;
    after(kQuietPruneTime, [](Core& core) {
      {
        const std::scoped_lock lock(core.fileMutex_);
        core.isPruneTimed_ = false;
      }
      core.prune();
    });
  }

  const std::filesystem::path file_;
  const HistoryOptions options_;
  const Thinner thinner_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const platform::dispatch_queue_t queue_;
  const platform::dispatch_queue_t handlerQueue_;
  const StateHandler handler_;

  std::unordered_map<BeaconId, Known> known_;  // the gateway's queue's

  std::mutex fileMutex_;  // guards what follows
  std::unique_ptr<HistoryStore> store_;
  std::vector<NewRecord> batch_;
  bool isClosed_ = false;
  platform::dispatch_time_t lastPrune_{};
  std::size_t rowsUntilPrune_ = 0;
  bool hasVacuumed_ = false;
  bool isPruneTimed_ = false;

  mutable std::mutex mutex_;  // guards what follows; taken after the other
  std::vector<NewRecord> pending_;
  std::size_t waiting_ = 0;  // also in the batch
  struct Lost {
    uint64_t count = 0;
    platform::Date since{};
  };
  Lost lost_;
  Counts counts_;
  State state_;
  std::optional<platform::dispatch_time_t> lastWrite_;
  bool isPosted_ = false;
  bool isTimed_ = false;
  uint64_t timer_ = 0;  // the newest
};

platform::Result<std::unique_ptr<HistoryWriter>> HistoryWriter::open(
    const std::filesystem::path& file, const HistoryOptions& options,
    std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t handlerQueue,
    StateHandler handler) {
  auto core =
      std::make_shared<Core>(file, options, std::move(dispatch), std::move(handlerQueue), std::move(handler));
  if (const auto opened = core->open(); !opened) return opened.error();
  return std::unique_ptr<HistoryWriter>(new HistoryWriter(std::move(core)));
}

HistoryWriter::HistoryWriter(std::shared_ptr<Core> core) : core_(std::move(core)) {}

HistoryWriter::~HistoryWriter() {
  core_->close();
}

void HistoryWriter::accept(const Record& record) {
  if (const auto* reading = std::get_if<Reading>(&record)) return core_->accept(*reading);
  core_->accept(std::get<BeaconEvent>(record), std::nullopt);
}

void HistoryWriter::accept(const Record& record, const KeptState& state) {
  if (const auto* event = std::get_if<BeaconEvent>(&record)) return core_->accept(*event, state);
  accept(record);
  keep(state);
}

void HistoryWriter::keep(const KeptState& state) {
  core_->keep(state);
}

void HistoryWriter::flush() {
  core_->flush();
}

Sink::State HistoryWriter::state() const {
  return core_->state();
}

HistoryWriter::Counts HistoryWriter::counts() const {
  return core_->counts();
}

}  // namespace brenloft
