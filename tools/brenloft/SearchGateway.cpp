#include "tools/brenloft/SearchGateway.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "gateway/history/HistoryReader.h"
#include "gateway/metrics/MetricsFile.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/SettingsWarnings.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

// The line keeps what it is given; what is shown outlives it.
std::shared_ptr<Sink> unowned(Sink& sink) {
  return {&sink, [](Sink*) {}};
}

// What the last run left.
struct LastRun {
  AlarmsKept kept{};
  std::vector<HistoryBeacon> beacons{};
};

// A history that cannot be read is one that cannot be written, which tells why.
LastRun lastRunIn(const std::filesystem::path& file, const Settings& settings) {
  LastRun last;
  AlarmsKept& kept = last.kept;
  const auto opened = HistoryReader::open(file);
  if (!opened) return last;
  HistoryReader& reader = **opened;
  if (auto states = reader.states()) kept.states = *std::move(states);
  if (auto latest = reader.latest(HistoryReader::kMostBeacons, settings.named()))
    last.beacons = *std::move(latest);
  for (const HistoryBeacon& one : last.beacons)
    if (one.latest) kept.heard[one.beacon] = heardAt(one.latest->record);
  if (const auto seq = reader.lastSeq(); seq && *seq > 0)
    if (const auto page = reader.rows(*seq - 1, {}, 1); page && !page->rows.empty())
      kept.stoppedAt = heardAt(page->rows.front().record);
  return last;
}

}  // namespace

SearchGateway::SearchGateway(const SearchOptions& options, platform::RunLoop& loop, Handlers handlers)
    : loop_(loop),
      handlers_(std::move(handlers)),
      queue_(loop.dispatch()->createQueue("gateway")),
      settings_(options.settings),
      line_(loop.dispatch(), queue_, settings_->current(), options.gateway.choice),
      notifier_(loop.dispatch(), queue_,
                {.onDone = [this](const AlarmNotice& notice) { line_.notified(notice); },
                 .onMessage = handlers_.onMessage}),
      ear_(loop.dispatch(), [this](Reading reading) { line_.hear(std::move(reading)); }) {
  line_.setOnRefused([this](const Reading& reading) {
    if (reading.verdict == Verdict::unknown || reading.verdict == Verdict::ignored) return;
    handlers_.onRefused(reading);
    if (const auto line = strangers_.refused(reading)) handlers_.onMessage(*line);
  });
  line_.setOnNotice([this](const AlarmNotice& notice) { notify(notice); });
  line_.add(unowned(handlers_.shown));
  const bool hasMetrics = !options.gateway.metricsFile.empty();
  if (hasMetrics) {
    // What the history takes up is told from its beginning.
    metrics_ = std::make_shared<MetricsBook>([settings = settings_] { return settings->current(); });
    line_.add(metrics_);
  }
  if (options.gateway.keepsHistory) addHistory(options);
  for (const GatewayOptions::File& file : options.gateway.files) addFile(file, options);
  // At the end it tells what became of all the others.
  if (hasMetrics) addMetrics(options);
  warnOfPrograms(*settings_->current());
}

// Before the night in which one is needed. On virtual time none is run.
void SearchGateway::warnOfPrograms(const Settings& settings) const {
  if (loop_.isVirtual()) return;
  for (const std::string& line : missingPrograms(settings)) handlers_.onMessage("brenloft: " + line);
}

void SearchGateway::addHistory(const SearchOptions& options) {
  const std::filesystem::path folder = folderOfContainer(options.container);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const std::filesystem::path file = folder / kHistoryFileName;
  const LastRun last = lastRunIn(file, *settings_->current());
  HistoryOptions history = options.gateway.history;
  // A virtual second takes no time, and one commit for each would wait for the disk for hours.
  history.isSynced = !loop_.isVirtual();
  auto opened = HistoryWriter::open(file, history, loop_.dispatch(), queue_, stateHandler(file.native()));
  if (!opened) throw Failure(ExitStatus::storeUnusable, opened.error().in(file.native()).text);
  history_ = *std::move(opened);
  if (metrics_) metrics_->restore(last.kept.states, last.beacons);
  line_.add(std::shared_ptr<KeepingSink>(history_), last.kept);
}

void SearchGateway::addFile(const GatewayOptions::File& file, const SearchOptions& options) {
  auto opened = TextFile::open(file.name, loop_.dispatch(), queue_, stateHandler(file.name));
  if (!opened) throw Failure(ExitStatus::failed, opened.error().text);
  const auto labels = [this](const BeaconId& beacon) { return line_.labelOf(beacon); };
  files_.emplace_back(file.name, std::make_shared<RecordFile>(
                                     *std::move(opened), recordLinesOf(file.format, options.time), labels));
  line_.add(files_.back().second);
}

void SearchGateway::addMetrics(const SearchOptions& options) {
  const std::string& name = options.gateway.metricsFile;
  auto file = std::make_shared<MetricsFile>(
      behindLinks(name), loop_.dispatch(), queue_, [this] { return metricsText(); }, stateHandler(name));
  // A timer on virtual time would run through every gap of a capture.
  if (!loop_.isVirtual())
    queue_->async([file, every = options.gateway.metricsInterval] { file->writeEvery(every); });
  line_.add(std::move(file));
}

std::string SearchGateway::metricsText() const {
  MetricsSnapshot snapshot = metrics_->snapshot(loop_.dispatch()->date());
  snapshot.version = BRENLOFT_VERSION;
  const Gateway::Census census = line_.census();
  snapshot.judged = census.judged;
  snapshot.dropped = census.dropped;
  if (history_) {
    snapshot.history = history_->counts();
    snapshot.outputs.push_back({"history", history_->state().isWorking, snapshot.history->dropped});
  }
  for (const auto& [name, file] : files_)
    snapshot.outputs.push_back({name, file->state().isWorking, file->dropped()});
  return renderMetrics(snapshot);
}

Sink::StateHandler SearchGateway::stateHandler(const std::string& name) {
  return [this, name](const Sink::State& state) {
    handlers_.onMessage(fmt::format(
        "brenloft: {}: {}", name,
        state.isWorking ? "is written again" : state.reason + "; the rest goes on, and this is tried again"));
  };
}

// Rules are tried on recordings: nobody is called for what happened last week.
void SearchGateway::notify(const AlarmNotice& notice) {
  if (loop_.isVirtual())
    queue_->async([this, notice] { line_.notified(notice); });
  else
    notifier_.notify(notice, line_.labelOf(notice.beacon));
}

std::vector<std::string> SearchGateway::raisedAlarms(const BeaconId& beacon) const {
  std::vector<std::string> names;
  for (const AlarmBook::Raised& raised : line_.alarms().raised(beacon)) names.push_back(raised.rule->name);
  return names;
}

void SearchGateway::radio(const platform::RadioState& state) {
  const std::string text(textOf(state.state));
  line_.radio(state.state == platform::CBManagerState::poweredOn,
              state.reason.empty() ? text : fmt::format("{} ({})", text, state.reason));
}

void SearchGateway::reload() {
  const auto [settings, lines] = settings_->reload();
  for (const std::string& line : lines) handlers_.onMessage(line);
  if (settings) line_.setSettings(settings);
  if (settings) warnOfPrograms(*settings);
  line_.reopen();
}

void SearchGateway::finish() {
  std::promise<void> done;
  line_.finish([this, &done] {
    if (const auto line = strangers_.atEnd()) handlers_.onMessage(*line);
    done.set_value();
  });
  const auto isDone = done.get_future();
  // On virtual time it is this thread that runs the queue; an output that is closed stops it again.
  while (loop_.isVirtual() && isDone.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
    loop_.runDue();
  isDone.wait();
}

}  // namespace brenloft
