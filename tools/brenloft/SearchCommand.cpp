#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "BrenloftSDK/BRLCoreDataManager.h"
#include "platform/NativePlatform.h"
#include "platform/location/BeaconLocationService.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Departures.h"
#include "tools/brenloft/IBeaconFilter.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/Source.h"
#include "tools/brenloft/SourceMonitor.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

Format formatOf(const SearchOptions& options) {
  if (options.format) return *options.format;
  return Output::isTerminal() ? Format::table : Format::jsonl;
}

std::unique_ptr<SearchEvents> makeForm(const SearchOptions& options, Output& out) {
  const Format format = formatOf(options);
  const TimeForm timeForm = timeFormOf(options.time, format);
  switch (format) {
    case Format::jsonl:
      return makeJsonEvents(out, timeForm);
    case Format::csv:
      return makeCsvEvents(out, timeForm);
    case Format::table:
      break;
  }
  return Output::isScreen() ? makeLiveTable(out, timeForm) : makeRowEvents(out, timeForm);
}

std::unique_ptr<SearchEvents> makeEvents(const SearchOptions& options, Output& out) {
  auto events = makeForm(options, out);
  return options.transitions ? makeTransitions(std::move(events)) : std::move(events);
}

// Passes the library's calls on, one at a time: they come on several threads.
class Reporter final : public BRLDelegateOf<Reporter> {
 public:
  Reporter(SearchEvents& events, Output& out, const SearchOptions& options)
      : events_(events),
        out_(out),
        isCounted_(options.count != 0),
        left_(options.count),
        departures_(options.leftAfter) {}

  /// Where the time of an event comes from, and what ends the search.
  void attach(RunLoop& loop) { loop_ = &loop; }

  bool respondsTo(BRLDelegateOperation operation) const noexcept override {
    if (operation == BRLDelegateOperation::didByteArray && !events_.showsBytes()) return false;
    return BRLDelegateOf<Reporter>::respondsTo(operation);
  }

  void contextManager_forBeacon(BRLContextManager&,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    report([&](auto time) {
      departures_.reported(*beacon);
      return events_.beacon(time, beacon->snapshot());
    });
  }
  void contextManager_didRangeBeaconSensors(BRLContextManager&, const BRLRecordList& beacons) override {
    std::vector<Departures::Change> changes;
    report([&](auto time) {
      changes = departures_.ranged(time, beacons);
      return events_.ranged(time, beacons);
    });
    for (const Departures::Change& change : changes) {
      report([&](auto time) {
        return change.hasLeft ? events_.left(time, change.beacon->snapshot())
                              : events_.returned(time, change.beacon->snapshot());
      });
    }
  }
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>& octets) override {
    report([&](auto time) { return events_.bytes(time, octets); });
  }
  void emergencyCallback_forBeacon(BRLContextManager&,
                                   const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    report([&](auto time) { return events_.emergency(time, beacon->snapshot()); });
  }
  /// Beside the count, which is of what was heard.
  void radio(const platform::RadioState& state) {
    const std::scoped_lock lock(mutex_);
    departures_.interrupt();
    show([&](auto time) {
      events_.radio(time, state);
      return false;
    });
  }

  void tick() {
    const std::scoped_lock lock(mutex_);
    events_.tick();
    if (!loop_->isVirtual()) out_.checkReader();
    if (out_.isClosed()) loop_->stop();
  }
  /// Writes to standard error, beside what stands on the terminal.
  template <typename Write>
  void aside(Write write) {
    const std::scoped_lock lock(mutex_);
    events_.makeRoom();
    write();
  }
  /// From here on only what the calling thread causes is reported: an advertisement that is still on its way
  /// on the scanner queue comes too late.
  void beginEnd() {
    const std::scoped_lock lock(mutex_);
    endingThread_ = std::this_thread::get_id();
  }
  void finish() {
    const std::scoped_lock lock(mutex_);
    events_.finish();
  }

 private:
  template <typename Event>
  void report(Event event) {
    const std::scoped_lock lock(mutex_);
    if (show(event) && isCounted_ && --left_ == 0) loop_->stop();
  }

  /// Whether anything was shown of it.
  template <typename Event>
  bool show(Event event) {
    if (isCounted_ && left_ == 0) return false;
    if (endingThread_ && *endingThread_ != std::this_thread::get_id()) return false;
    const platform::Date date = loop_->dispatch()->date();
    const bool isShown = event(date);
    // A timer on virtual time would run through every gap of a capture.
    if (loop_->isVirtual() && (date < ticked_ || date - ticked_ >= events_.period())) {
      ticked_ = date;
      events_.tick();
    }
    if (out_.isClosed()) loop_->stop();
    return isShown;
  }

  std::mutex mutex_;  // guards what follows; never taken while the library is called
  SearchEvents& events_;
  Output& out_;
  RunLoop* loop_ = nullptr;
  const bool isCounted_;
  uint64_t left_;
  Departures departures_;
  platform::Date ticked_;
  std::optional<std::thread::id> endingThread_;
};

// One search from its source to its end. Lives to the end of the process, as the library's own objects do:
// their queues may still hold calls into it.
class Search {
 public:
  explicit Search(SearchOptions options)
      : options_(std::move(options)),
        out_(isReadAtOnce(options_.source) ? Output::Buffering::blocks : Output::Buffering::lines),
        events_(makeEvents(options_, out_)),
        reporter_(*events_, out_, options_) {}

  void run() {
    StopSignals signals;
    signals.watch([this] { stop_.request_stop(); });
    openSourceAndMonitor();
    installPlatform();
    const std::stop_callback onStop(stop_.get_token(), [this] { source_.loop->stop(); });
    monitor_->begin();
    events_->begin();
    begin();
    source_.loop->run();
    end();
  }

 private:
  void openSourceAndMonitor() {
    const auto message = [this](std::string_view line) { printAside(line); };
    source_ =
        openSource(options_.source,
                   {.onEnd = [this] { sourceEnded(); }, .onMessage = message, .stop = stop_.get_token()});
    reporter_.attach(*source_.loop);
    monitor_ = SourceMonitor::make(
        {.record = options_.record,
         .container = options_.container,
         .capture = source_.capture,
         .isRadio = source_.isRadio,
         .exitTime =
             options_.mode == SearchOptions::Mode::sensors ? std::optional(options_.exitTime) : std::nullopt,
         .date = [this] { return source_.loop->dispatch()->date(); },
         .stop = stop_.get_token(),
         .onMessage = message,
         .onRadioState = [this](const platform::RadioState& state) { reporter_.radio(state); },
         .onUnusable = [this] { source_.loop->stop(); }});
    reports_ = monitor_->wrap(source_.reports);
    if (options_.mode == SearchOptions::Mode::iBeacons)
      reports_ = filtered(
          reports_, {*platform::NSUUID::initWithUUIDString(*options_.uuid), options_.major, options_.minor});
  }

  // iBeacons are reported once a second: the last, unfinished one is waited for.
  void sourceEnded() {
    if (options_.mode == SearchOptions::Mode::sensors) return source_.loop->stop();
    source_.loop->dispatch()->after(platform::BeaconLocationService::kRangingPeriod,
                                    source_.loop->dispatch()->mainQueue(), [this] { source_.loop->stop(); });
  }

  void installPlatform() {
    auto platform = platform::nativePlatform(
        {.container = options_.container,
         .radio = reports_,
         .dispatch = source_.loop->dispatch(),
         .onSettingsProblem =
             [this](std::string_view line) {
               reporter_.aside([line] { printMessage(fmt::format("brenloft: {}", line)); });
             },
         .onRadioDiagnostic = [this](std::string_view line) { printAside(line); }});
    // A search that keeps nothing leaves no trace.
    if (!options_.log && options_.container.empty())
      platform.userDefaults = platform::makeInMemoryUserDefaults();
    platform.log = [](std::string_view) {};
    if (options_.verbose) platform.log = [this](std::string_view line) { printWithTime(line); };
    platform::Platform::install(std::move(platform));
    if (!options_.log) return;
    printFatalStoreProblems([this] {
      monitor_->flush();
      out_.flush();
    });
    BRLCoreDataManager::Class::setTellWaiting([this](std::string_view line) { printWithTime(line); });
    if (const auto error = BRLCoreDataManager::Class::storeProblem())
      throw Failure(ExitStatus::storeUnusable, error->text);
  }

  void printAside(std::string_view line) {
    reporter_.aside([line] { printMessage(line); });
  }

  void printWithTime(std::string_view line) {
    reporter_.aside([&] {
      printMessage(diagnosticTimes_.whole(source_.loop->dispatch()->date()) + ' ' + std::string(line));
    });
  }

  void begin() {
    using Class = BRLContextManager::Class;
    BRLContextManager* manager = Class::brlWithProximityUUID(options_.uuid);
    manager->setIsLogSave(options_.log);
    Class::setBeaconType(static_cast<uint64_t>(options_.mode));
    Class::setBeaconExitTime(options_.exitTime);
    Class::setDelegate(&reporter_);
    const auto& dispatch = *source_.loop->dispatch();
    if (options_.duration)
      source_.loop->dispatch()->after(*options_.duration, dispatch.mainQueue(),
                                      [this] { source_.loop->stop(); });
    if (!source_.loop->isVirtual()) tick();
    if (options_.mode == SearchOptions::Mode::sensors)
      Class::startLeScan();
    else
      beginRanging();
  }

  // Monitored is the whole UUID, whatever tells its iBeacons apart: that is set once the region is submitted.
  // The main queue brings the authorization before each step, at which the library submits regions, too.
  void beginRanging() {
    const auto mainQueue = source_.loop->dispatch()->mainQueue();
    mainQueue->async([this, mainQueue] {
      if (hasEnded_) return;
      BRLContextManager::Class::startLeScan();
      mainQueue->async([this] { BRLContextManager::Class::setBeaconGroupType(options_.group); });
    });
  }

  void tick() {
    reporter_.tick();
    source_.loop->dispatch()->after(events_->period(), source_.loop->dispatch()->mainQueue(),
                                    [this] { tick(); });
  }

  void end() {
    hasEnded_ = true;
    reporter_.beginEnd();
    BRLContextManager::Class::stopLeScan();
    BRLContextManager::Class::setDelegate(nullptr);
    source_.loop->runDue();
    reports_->close();
    reporter_.finish();
    // Neither takes the other along when it fails.
    out_.flush();
    monitor_->finish();
    out_.finish();
  }

  const SearchOptions options_;
  std::stop_source stop_;
  Output out_;
  std::unique_ptr<SearchEvents> events_;
  Reporter reporter_;
  TimeText diagnosticTimes_{options_.time.value_or(TimeForm::local)};  // used within the reporter's `aside`
  Source source_;
  std::shared_ptr<SourceMonitor> monitor_;
  std::shared_ptr<platform::AdvertisingReportSource> reports_;
  bool hasEnded_ = false;
};

}  // namespace

ExitStatus runSearch(const SearchOptions& options) {
  static Search& search = *new Search(options);
  search.run();
  return ExitStatus::done;
}

}  // namespace brenloft
