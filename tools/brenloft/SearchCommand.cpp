#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <unistd.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "BrenloftSDK/BRLCoreDataManager.h"
#include "gateway/configuration/LiveSettings.h"
#include "platform/NativePlatform.h"
#include "platform/location/BeaconLocationService.h"
#include "platform/location/iBeaconFrame.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Departures.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/ReportFilter.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/SearchGateway.h"
#include "tools/brenloft/Source.h"
#include "tools/brenloft/SourceMonitor.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

// How often the log's size and age are looked at, and between two steps of a deletion.
constexpr std::chrono::milliseconds kLogPeriod = std::chrono::seconds(10);
constexpr std::chrono::milliseconds kLogPause{20};

SearchFormat formatOf(const SearchOptions& options) {
  if (options.format) return *options.format;
  if (Output::isTerminal()) return SearchFormat::table;
  return options.gateway.files.empty() ? SearchFormat::jsonl : SearchFormat::none;
}

std::unique_ptr<SearchEvents> makeForm(const SearchOptions& options, Output& out, const Labels& labels,
                                       const RaisedAlarms& alarms) {
  const SearchFormat format = formatOf(options);
  const TimeForm timeForm =
      timeFormOf(options.time, format == SearchFormat::table ? Format::table : Format::jsonl);
  switch (format) {
    case SearchFormat::jsonl:
      return makeJsonEvents(out, timeForm);
    case SearchFormat::csv:
      return makeCsvEvents(out, timeForm);
    case SearchFormat::readings:
    case SearchFormat::influx:
      return makeRecordLines(out, recordLinesOf(format, options.time), labels);
    case SearchFormat::none:
      return makeNoEvents();
    case SearchFormat::table:
      break;
  }
  return Output::isScreen() ? makeLiveTable(out, timeForm, labels, alarms) : makeRowEvents(out, timeForm);
}

std::unique_ptr<SearchEvents> makeEvents(const SearchOptions& options, Output& out, const Labels& labels,
                                         const RaisedAlarms& alarms) {
  auto events = makeForm(options, out, labels, alarms);
  return options.transitions ? makeTransitions(std::move(events)) : std::move(events);
}

// Whether what is wanted is the gateway's.
bool isOfRecords(const SearchOptions& options) {
  const SearchFormat format = formatOf(options);
  return format == SearchFormat::readings || format == SearchFormat::influx ||
         !options.gateway.files.empty() || options.gateway.keepsHistory ||
         !options.gateway.metricsFile.empty() || (format == SearchFormat::table && Output::isScreen());
}

// Whether the library's own losses are told or logged.
bool isOfLibrary(const SearchOptions& options) {
  const SearchFormat format = formatOf(options);
  return options.log || format == SearchFormat::jsonl || format == SearchFormat::csv ||
         (format == SearchFormat::table && !Output::isScreen());
}

// What tells iBeacons apart. The gateway tells each from the others, whatever was chosen.
int64_t groupOf(const SearchOptions& options) {
  if (options.group) return *options.group;
  return isOfRecords(options) || options.minor ? 2 : options.major ? 1 : 0;
}

// Passes the library's calls on, one at a time: they come on several threads. To what is shown it also passes
// the gateway's records.
class Reporter final : public BRLDelegateOf<Reporter>, public Sink {
 public:
  Reporter(SearchEvents& events, Output& out, const SearchOptions& options)
      : events_(events),
        out_(out),
        isCounted_(options.count != 0),
        isPresentOnly_(options.isPresentOnly),
        left_(options.count),
        departures_(options.leftAfter) {}

  /// Where the time of an event comes from, and what ends the search.
  void attach(platform::RunLoop& loop) {
    loop_ = &loop;
    out_.setOnClosed([&loop] { loop.stop(); });
  }
  /// Who hears what the library tells, too.
  void attach(Ear& ear) { ear_ = &ear; }

  bool respondsTo(BRLDelegateOperation operation) const noexcept override {
    if (operation == BRLDelegateOperation::didByteArray && !events_.showsBytes() && ear_ == nullptr)
      return false;
    return BRLDelegateOf<Reporter>::respondsTo(operation);
  }

  void contextManager_forBeacon(BRLContextManager&,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    report([&](auto time) {
      departures_.reported(*beacon);
      if (ear_ != nullptr) ear_->beacon(*beacon);
      return events_.beacon(time, beacon->snapshot());
    });
  }
  void contextManager_didRangeBeaconSensors(BRLContextManager&, const BRLRecordList& beacons) override {
    std::vector<Departures::Change> changes;
    report([&](auto time) {
      changes = departures_.ranged(time, beacons);
      if (ear_ != nullptr) ear_->ranged(beacons);
      return isPresentOnly_ ? rangedPresent(time, beacons) : events_.ranged(time, beacons);
    });
    for (const Departures::Change& change : changes) {
      report([&](auto time) {
        return change.hasLeft ? events_.left(time, change.beacon->snapshot())
                              : events_.returned(time, change.beacon->snapshot());
      });
    }
  }
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>& octets) override {
    // The same advertisement's beacon follows in the same call of the library, and takes the line along.
    report(
        [&](auto time) {
          if (ear_ != nullptr) ear_->bytes(octets);
          return events_.bytes(time, octets);
        },
        false);
  }
  void emergencyCallback_forBeacon(BRLContextManager&,
                                   const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    report([&](auto time) { return events_.emergency(time, beacon->snapshot()); });
  }
  /// Beside the count, which is of what was heard. On the radio's queue, which a reader that stalls is not to
  /// hold up.
  void radio(const platform::RadioState& state) {
    {
      const std::scoped_lock lock(mutex_);
      if (comesTooLate()) return;
      departures_.interrupt();
      show([&](auto time) {
        events_.radio(time, state);
        return false;
      });
    }
    loop_->dispatch()->mainQueue()->async([this] { out_.flushSoon(); });
  }

  void accept(const Record& record) override {
    {
      const std::scoped_lock lock(mutex_);
      // What was heard before the end is shown, however late it comes.
      count(!isCountedOut() && events_.record(record));
    }
    out_.flushSoon();
  }
  void flush() override {}
  State state() const override { return {}; }
  void refused(const Reading& reading) {
    const std::scoped_lock lock(mutex_);
    events_.refused(reading);
  }

  void tick() {
    {
      const std::scoped_lock lock(mutex_);
      events_.tick(loop_->dispatch()->date());
    }
    out_.flush();
    if (!loop_->isVirtual()) out_.checkReader();
    if (out_.isClosed()) loop_->stop();
  }
  /// Writes to standard error, beside what is drawn on a terminal. Where nothing is drawn it waits for
  /// nobody: the radio's thread is not to be held up by a reader that stalls. Threads: any.
  template <typename Write>
  void aside(Write write) {
    if (!Output::isScreen()) return write();
    const std::scoped_lock lock(mutex_);
    events_.makeRoom();
    write();
  }
  /// From here on only what the main thread causes is reported: an advertisement that is still on its way on
  /// the scanner queue comes too late, and that queue goes on no more: what it would still find could only be
  /// lost again. Waits for nobody. Threads: any.
  void beginEnd() { isEnding_ = true; }
  void finish() {
    const std::scoped_lock lock(mutex_);
    events_.finish();
  }

 private:
  template <typename Event>
  void report(Event event, bool isWhole = true) {
    if (!reportInTime(event)) isEnding_.wait(true);  // for good
    if (isWhole) out_.flushSoon();
  }
  template <typename Event>
  bool reportInTime(Event event) {
    if (comesTooLate()) return false;
    const std::scoped_lock lock(mutex_);
    if (comesTooLate()) return false;
    count(show(event));
    return true;
  }
  bool rangedPresent(platform::Date time, const BRLRecordList& beacons) {
    BRLRecordList present;
    for (const auto& beacon : beacons.view())
      if (beacon->status() == kBRLPresent && !departures_.hasLeft(*beacon)) present.append(beacon);
    return events_.ranged(time, present);
  }

  void count(bool isShown) {
    if (isShown && isCounted_ && --left_ == 0) loop_->stop();
    if (out_.isClosed()) loop_->stop();
  }
  bool isCountedOut() const { return isCounted_ && left_ == 0; }
  bool comesTooLate() const { return isEnding_ && std::this_thread::get_id() != mainThread_; }

  /// Whether anything was shown of it.
  template <typename Event>
  bool show(Event event) {
    if (isCountedOut()) return false;
    const platform::Date date = loop_->dispatch()->date();
    const bool isShown = event(date);
    // A timer on virtual time would run through every gap of a capture.
    if (loop_->isVirtual() && (date < ticked_ || date - ticked_ >= events_.period())) {
      ticked_ = date;
      events_.tick(date);
    }
    return isShown;
  }

  const std::thread::id mainThread_ = std::this_thread::get_id();
  std::atomic<bool> isEnding_ = false;

  std::mutex mutex_;  // guards what follows; never taken while the library is called
  SearchEvents& events_;
  Output& out_;
  platform::RunLoop* loop_ = nullptr;
  Ear* ear_ = nullptr;
  const bool isCounted_;
  const bool isPresentOnly_;
  uint64_t left_;
  Departures departures_;
  platform::Date ticked_;
};

// One search from its source to its end. Lives to the end of the process, as the library's own objects do:
// their queues may still hold calls into it.
class Search {
 public:
  explicit Search(SearchOptions options)
      : options_(std::move(options)),
        out_(platform::isReadAtOnce(options_.source) ? Output::Buffering::blocks : Output::Buffering::bursts),
        events_(makeEvents(
            options_, out_,
            [this](const auto& beacon) { return options_.settings->current()->labelOf(beacon); },
            [this](const auto& beacon) { return gateway_->raisedAlarms(beacon); })),
        reporter_(*events_, out_, options_) {}

  void run() {
    StopSignals signals;
    signals.watch([this] { stop_.request_stop(); }, [this] { reload(); });
    openSourceAndMonitor();
    openGateway();
    isOpen_ = true;
    installPlatform();
    const std::stop_callback onStop(stop_.get_token(), [this] { stop(); });
    monitor_->begin();
    events_->begin();
    out_.flush();
    begin();
    source_.loop->run();
    end();
  }

 private:
  bool isRanging() const { return options_.mode == SearchOptions::Mode::iBeacons; }

  void openSourceAndMonitor() {
    const auto message = [this](std::string_view line) { printAside(line); };
    source_ =
        openSource(options_.source,
                   {.onEnd = [this] { sourceEnded(); }, .onMessage = message, .stop = stop_.get_token()});
    reporter_.attach(*source_.loop);
    monitor_ = SourceMonitor::make(
        {.record = options_.record,
         .capture = source_.capture,
         .isRadio = source_.isRadio,
         .exitTime = !isRanging() && isOfLibrary(options_) ? std::optional(options_.exitTime) : std::nullopt,
         .date = [this] { return source_.loop->dispatch()->date(); },
         .stop = stop_.get_token(),
         .onMessage = message,
         .onRadioState =
             [this](const platform::RadioState& state) {
               reporter_.radio(state);
               if (gateway_) gateway_->radio(state);
             },
         .onUnusable = [this] { source_.loop->stop(); }});
    reports_ = monitor_->wrap(source_.reports);
    filterReports();
  }

  void filterReports() {
    ReportChoice heard = options_.heard;
    if (isRanging())
      heard.iBeacons = {*platform::NSUUID::initWithUUIDString(*options_.uuid), options_.major,
                        options_.minor};
    // The library asks for one service itself, but what it leaves out must not count as a beacon.
    if (options_.uuid && heard.mostBeacons == 0 && heard.newPerMinute == 0) heard.services.clear();
    if (heard == ReportChoice{}) return;
    filter_ = std::make_shared<ReportFilter>(
        std::move(heard), [this] { return source_.loop->dispatch()->now(); },
        [this](std::string_view line) { printAside(line); });
    reports_ = filter_->wrap(reports_);
  }

  // Where only what the library tells is wanted, it need not be judged; but people are told of strangers.
  void openGateway() {
    const bool hasAlarms = !options_.settings->current()->alarms.empty();
    if (!isOfRecords(options_) && !hasAlarms && ::isatty(STDERR_FILENO) != 1) return;
    gateway_ = std::make_unique<SearchGateway>(
        options_, *source_.loop,
        SearchGateway::Handlers{reporter_, [this](const Reading& reading) { reporter_.refused(reading); },
                                [this](std::string_view line) { printAside(line); }});
    reporter_.attach(gateway_->ear());
  }

  void reload() {
    // A signal may come before there is anything to reload.
    if (!isOpen_) return;
    source_.loop->dispatch()->mainQueue()->async([this] {
      if (gateway_) gateway_->reload();
    });
  }

  // Whatever still waits to be reported.
  void stop() {
    reporter_.beginEnd();
    source_.loop->stop();
  }

  // iBeacons are reported once a second: the last, unfinished one is waited for.
  void sourceEnded() {
    if (!isRanging()) return source_.loop->stop();
    source_.loop->dispatch()->after(platform::BeaconLocationService::kRangingPeriod,
                                    source_.loop->dispatch()->mainQueue(), [this] { source_.loop->stop(); });
  }

  // On the radio's queue. The ear keeps frames until there is a report of the chosen iBeacons, which need not
  // be near.
  bool isHeard(const platform::CBAdvertisementData& advertisement) {
    if (filter_ && !filter_->accepts(advertisement)) return false;
    if (gateway_ && isRanging() && advertisement.manufacturerData)
      if (const auto frame = platform::parseIBeaconFrame(*advertisement.manufacturerData);
          frame && frame->proximityUUID == rangedUUID_)
        gateway_->ear().frame(*frame);
    return true;
  }

  void installPlatform() {
    platform::NativePlatformOptions services{
        .container = options_.container,
        .radio = reports_,
        .dispatch = source_.loop->dispatch(),
        .onSettingsProblem =
            [this](std::string_view line) {
              reporter_.aside([line] { printMessage(fmt::format("brenloft: {}", line)); });
            },
        .onRadioDiagnostic = [this](std::string_view line) { printAside(line); }};
    if (filter_ || (gateway_ && isRanging()))
      services.filter = [this](const auto& advertisement) { return isHeard(advertisement); };
    auto platform = platform::nativePlatform(std::move(services));
    // A search that keeps nothing leaves no trace.
    if (!options_.log && !options_.gateway.keepsHistory && options_.container.empty())
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
    if (options_.duration) source_.loop->callAfter(*options_.duration, [this] { stop(); });
    if (!source_.loop->isVirtual()) tick();
    if (isLogBounded() && !source_.loop->isVirtual()) boundLog();
    if (!isRanging())
      Class::startLeScan();
    else
      beginRanging();
  }

  // Monitored is the whole UUID, whatever tells its iBeacons apart: that is set once the region is submitted.
  // The main queue brings the authorization before each step, at which the library submits regions, too.
  void beginRanging() {
    const auto mainQueue = source_.loop->dispatch()->mainQueue();
    mainQueue->async([this, mainQueue] {
      BRLContextManager::Class::startLeScan();
      mainQueue->async([this] { BRLContextManager::Class::setBeaconGroupType(groupOf(options_)); });
    });
  }

  void tick() {
    reporter_.tick();
    source_.loop->dispatch()->after(events_->period(), source_.loop->dispatch()->mainQueue(),
                                    [this] { tick(); });
  }

  bool isLogBounded() const { return options_.log && options_.logBounds != LogBounds{}; }

  void boundLog() {
    const bool isMore = logLimits_.step(source_.loop->dispatch()->date());
    source_.loop->dispatch()->after(isMore ? kLogPause : kLogPeriod, source_.loop->dispatch()->mainQueue(),
                                    [this] { boundLog(); });
  }

  void end() {
    reporter_.beginEnd();
    BRLContextManager::Class::stopLeScan();
    BRLContextManager::Class::setDelegate(nullptr);
    reports_->close();
    if (gateway_) gateway_->finish();
    // A capture's log grows in a moment.
    while (isLogBounded() && source_.loop->isVirtual() && !StopSignals::isStopped() &&
           logLimits_.step(source_.loop->dispatch()->date())) {
    }
    reporter_.finish();
    // Neither takes the other along when it fails.
    out_.flush();
    monitor_->finish();
    out_.finish();
  }

  const SearchOptions options_;
  const std::optional<platform::NSUUID> rangedUUID_ =
      isRanging() ? platform::NSUUID::initWithUUIDString(*options_.uuid) : std::nullopt;
  std::stop_source stop_;
  Output out_;
  std::unique_ptr<SearchGateway> gateway_;
  std::unique_ptr<SearchEvents> events_;
  Reporter reporter_;
  TimeText diagnosticTimes_{options_.time.value_or(TimeForm::local)};  // used within the reporter's `aside`
  platform::Source source_;
  std::atomic<bool> isOpen_{false};  // the source and the gateway are there, for other threads too
  std::shared_ptr<SourceMonitor> monitor_;
  std::shared_ptr<platform::AdvertisingReportSource> reports_;
  std::shared_ptr<ReportFilter> filter_;  // null where everything is heard
  LogLimits logLimits_{options_.logBounds};
};

}  // namespace

ExitStatus runSearch(const SearchOptions& options) {
  static Search& search = *new Search(options);
  search.run();
  return ExitStatus::done;
}

}  // namespace brenloft
