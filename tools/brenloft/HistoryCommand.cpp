#include "tools/brenloft/HistoryCommand.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <poll.h>

#include "gateway/Texts.h"
#include "gateway/history/HistoryFollower.h"
#include "gateway/history/HistoryMaintenance.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tools/brenloft/BackupFile.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/DocumentFile.h"
#include "tools/brenloft/HistoryLines.h"
#include "tools/brenloft/HistoryPlot.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/SpanTexts.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

using Options = HistoryCommandOptions;
using platform::Date;
using platform::Error;

constexpr std::size_t kRowsPerPage = 1000;
// Memory is bounded by so many pieces of each beacon.
constexpr int64_t kPiecesPerWindow = 500;
constexpr std::chrono::hours kShown{1};
constexpr std::chrono::seconds kShortestPlot{10};
constexpr int kReaderCheck = 250;  // milliseconds

// False when nobody wants more.
using TextSink = std::function<bool(std::string_view)>;

class HistoryCommand {
 public:
  explicit HistoryCommand(const Options& options)
      : options_(options),
        file_(folderOfContainer(options.container) / kHistoryFileName),
        now_(platform::RealTimeDispatch::make()->date()),
        settings_(options.settings->current()) {
    if (!options.container.empty()) storeIn(options.container);  // says what is wrong with the folder
  }

  void run() {
    switch (options_.action) {
      case Options::Action::show:
        return show();
      case Options::Action::exportRows:
        return exportRows();
      case Options::Action::count:
        return count();
      case Options::Action::last:
        return last();
      case Options::Action::prune:
        return prune();
      case Options::Action::check:
        return check();
      case Options::Action::backUp:
        return backUp();
    }
  }

 private:
  // What the options mean.

  [[noreturn]] void fail(const Error& error) const {
    throw Failure(ExitStatus::storeUnusable, file_.string() + ": " + error.text);
  }
  template <typename Value>
  Value require(platform::Result<Value> result) const {
    if (!result) fail(result.error());
    return *std::move(result);
  }

  HistoryFilter filter() const {
    return {.beacons = beaconsFromTexts("--beacon", options_.beacons, *options_.settings),
            .span = spanFromTexts(options_.since, options_.until, now_),
            .hasEvents = !options_.readingsOnly};
  }

  HistoryLines lines() const {
    return {options_.format, options_.time, [this](const BeaconId& id) { return settings_->labelOf(id); }};
  }

  /// Nothing where there is no history yet.
  std::unique_ptr<HistoryReader> open() const {
    auto reader = HistoryReader::open(file_);
    if (!reader && reader.error().kind == Error::Kind::absent) return nullptr;
    return require(std::move(reader));
  }
  void printNothing() const { printEmpty("no history", options_.container); }

  // Most often the time was another one, so it says which there is.
  void printNoRows(HistoryReader& reader, const HistoryFilter& filter, std::string_view what) const {
    std::optional<Date> newest;
    for (const HistoryBeacon& one : require(reader.latestAt(filter.beacons, Date::max())))
      newest = std::max(newest, std::optional(heardAt(one.latest->record)));
    printMessage(newest
                     ? fmt::format("{}; the newest reading is of {}; --since and --until choose another time",
                                   what, timeText(*newest))
                     : std::string(what));
  }
  std::string timeText(Date date) const {
    return TimeText(options_.time.value_or(TimeForm::local)).whole(date);
  }

  // Rows.

  void eachPage(HistoryReader& reader, const HistoryFilter& filter, int64_t after,
                const std::function<bool(HistoryPage&)>& take) const {
    // What is written meanwhile would have no end.
    const int64_t last = require(reader.lastSeq());
    while (after < last) {
      auto page = require(reader.rows(after, filter, kRowsPerPage));
      std::erase_if(page.rows, [&](const HistoryRow& row) { return row.seq > last; });
      if (!take(page) || page.through <= after) return;
      after = page.through;
    }
  }

  // False when nothing was there. `through` becomes the last number that was looked at.
  bool writeRows(HistoryReader& reader, const HistoryFilter& filter, const TextSink& sink,
                 int64_t& through) const {
    HistoryLines form = lines();
    std::string text;
    form.header(text);
    bool isAny = false;
    sink(text);
    const auto write = [&](const HistoryPage& page) {
      text.clear();
      for (const HistoryRow& row : page.rows) form.row(text, row);
      isAny = isAny || !page.rows.empty();
      through = page.through;
      return sink(text);
    };
    if (options_.last)
      write(newest(reader, filter));
    else
      eachPage(reader, filter, 0, write);
    return isAny;
  }

  // The newest so many. How far from the end they begin is found out.
  HistoryPage newest(HistoryReader& reader, const HistoryFilter& filter) const {
    const auto most = static_cast<std::ptrdiff_t>(*options_.last);
    const int64_t last = require(reader.lastSeq());
    HistoryPage found{.through = last};
    auto& rows = found.rows;
    for (int64_t width = std::max<int64_t>(most, kRowsPerPage);; width *= 4) {
      rows.clear();
      eachPage(reader, filter, std::max<int64_t>(last - width, 0), [&](HistoryPage& page) {
        std::ranges::move(page.rows, std::back_inserter(rows));
        if (std::ssize(rows) > most) rows.erase(rows.begin(), rows.end() - most);
        found.through = page.through;
        return true;
      });
      if (std::ssize(rows) == most || width >= last) return found;
    }
  }

  // Window after window, so that a long time needs no more memory than a short one.
  bool writePieces(HistoryReader& reader, const HistoryFilter& filter, const TextSink& sink) const {
    HistoryLines form = lines();
    const auto width = std::chrono::duration_cast<std::chrono::seconds>(*options_.every);
    std::vector<BeaconId> beacons = filter.beacons;
    if (beacons.empty())
      for (const HistoryBeacon& beacon : require(reader.latest())) beacons.push_back(beacon.beacon);
    const HistorySpan extent = require(reader.extent());
    const Date until = std::min(filter.span.until, extent.until);
    const auto first = std::chrono::floor<std::chrono::seconds>(std::max(filter.span.since, extent.since));
    std::string text;
    form.pointHeader(text);
    bool isAny = false;
    bool isWanted = sink(text);
    int64_t pieces = kPiecesPerWindow;
    for (Date start = first - first.time_since_epoch() % width; isWanted && start < until;) {
      text.clear();
      const Date end = std::min<Date>(start + width * pieces, until);
      writeWindow(reader, beacons, {std::max<Date>(start, first), end}, form, text);
      // Over a time in which nothing was heard, in growing steps; what one of them meets is then read in
      // small ones.
      if (!text.empty() && std::exchange(pieces, kPiecesPerWindow) > kPiecesPerWindow) continue;
      if (text.empty()) pieces *= 2;
      isAny = isAny || !text.empty();
      isWanted = sink(text);
      start = end;
    }
    return isAny;
  }

  void writeWindow(HistoryReader& reader, const std::vector<BeaconId>& beacons, const HistorySpan& window,
                   HistoryLines& form, std::string& text) const {
    const auto width = std::chrono::duration_cast<std::chrono::seconds>(*options_.every);
    std::map<std::pair<Date, std::size_t>, HistoryLines::Points> pieces;
    for (std::size_t beacon = 0; beacon < beacons.size(); ++beacon)
      for (std::size_t i = 0; i < HistoryLines::kQuantities.size(); ++i) {
        const auto found =
            require(reader.pieces(beacons[beacon], HistoryLines::kQuantities[i], window, width));
        for (const HistoryPoint& point : found) pieces[{point.start, beacon}][i] = point;
      }
    for (const auto& [key, points] : pieces) form.points(text, key.first, beacons[key.second], points);
  }

  bool write(HistoryReader& reader, const HistoryFilter& filter, const TextSink& sink) const {
    int64_t through = 0;
    return options_.every ? writePieces(reader, filter, sink) : writeRows(reader, filter, sink, through);
  }

  // The actions.

  void show() {
    HistoryFilter wanted = filter();
    const bool isOfLastHour = options_.since.empty() && options_.until.empty() && !options_.last;
    const char* none = isOfLastHour ? "nothing in the last hour" : "nothing there";
    if (isOfLastHour && !options_.every) wanted.span.since = now_ - kShown;
    if (options_.isPlot) return plot(wanted, none);
    std::optional<StopSignals> signals;
    if (options_.follow) signals.emplace();
    const auto reader = open();
    Output out(options_.follow ? Output::Buffering::lines : Output::Buffering::blocks);
    const TextSink sink = [&](std::string_view text) {
      if (!text.empty()) out.write(text);
      return !out.isClosed();
    };
    bool isAny = false;
    int64_t through = 0;
    if (reader)
      isAny = options_.every ? writePieces(*reader, wanted, sink) : writeRows(*reader, wanted, sink, through);
    if (!reader)
      printNothing();
    else if (!isAny)
      printNoRows(*reader, wanted, none);
    if (options_.follow) follow(wanted, through, out, *signals);
    out.finish();
  }

  // What is drawn: of the newest readings, or of the time that was chosen.
  HistorySpan plotSpan(HistoryReader& reader, HistoryFilter wanted) const {
    HistorySpan span = wanted.span;
    if (options_.last) {
      wanted.hasEvents = false;
      const std::vector<HistoryRow> rows = newest(reader, wanted).rows;
      if (rows.empty()) return span;
      const auto [first, last] =
          std::ranges::minmax(rows, {}, [](const HistoryRow& row) { return heardAt(row.record); });
      span = {heardAt(first.record), heardAt(last.record) + std::chrono::microseconds(1)};
      span.since = std::min(span.since, span.until - kShortestPlot);
      return span;
    }
    if (options_.until.empty()) span.until = now_;
    if (span.until < span.since + kShortestPlot)
      throw Failure(ExitStatus::usage, "--plot: less than ten seconds are too short for a chart");
    // What was before the history takes no room.
    span.since = std::max(span.since, std::min(require(reader.extent()).since, span.until - kShortestPlot));
    return span;
  }

  void plot(const HistoryFilter& wanted, std::string_view none) const {
    const auto reader = open();
    if (!reader) return printNothing();
    const HistorySpan span = plotSpan(*reader, wanted);
    const std::string charts = require(plotHistory(
        *reader, *settings_, {span, now_, wanted.beacons, options_.quantities}, chartFormOfTerminal()));
    if (charts.empty()) return printNoRows(*reader, wanted, none);
    Output out(Output::Buffering::blocks);
    out.write(charts);
    out.finish();
  }

  void follow(const HistoryFilter& wanted, int64_t through, Output& out, StopSignals& signals) const {
    signals.watch([] {});
    auto follower = require(HistoryFollower::open(file_));
    HistoryLines form = lines();
    std::string text;
    while (!StopSignals::isStopped() && !out.isClosed()) {
      pollfd wake{follower->wakeDescriptor(), POLLIN, 0};
      ::poll(&wake, 1, kReaderCheck);
      out.checkReader();
      auto news = require(follower->after(through, kRowsPerPage));
      through += static_cast<int64_t>(news.missing);
      text.clear();
      for (const HistoryRow& row : news.rows) {
        through = row.seq;
        const BeaconId* beacon = beaconOf(row.record);
        const bool isOne =
            wanted.beacons.empty() ||
            (beacon != nullptr && std::ranges::find(wanted.beacons, *beacon) != wanted.beacons.end());
        const bool isKind = wanted.hasEvents || std::holds_alternative<Reading>(row.record);
        if (isOne && isKind && wanted.span.contains(heardAt(row.record))) form.row(text, row);
      }
      if (!text.empty()) out.write(text);
    }
  }

  void exportRows() {
    const HistoryFilter wanted = filter();
    const auto reader = open();
    if (options_.out.empty()) {
      Output out(Output::Buffering::blocks);
      const TextSink sink = [&](std::string_view text) {
        out.write(text);
        return !out.isClosed();
      };
      if (reader) write(*reader, wanted, sink);
      out.finish();
    } else {
      DocumentFile file(options_.out);
      if (reader) write(*reader, wanted, [&](std::string_view text) { return file.write(text), true; });
      file.finish();
    }
    if (!reader) printNothing();
  }

  void count() {
    const HistoryFilter wanted = filter();
    const auto reader = open();
    uint64_t rows = 0;
    if (reader && options_.since.empty() && options_.until.empty() && options_.beacons.empty() &&
        !options_.readingsOnly)
      rows = require(reader->count());
    else if (reader)
      eachPage(*reader, wanted, 0, [&](const HistoryPage& page) { return rows += page.rows.size(), true; });
    Output out(Output::Buffering::blocks);
    out.write(fmt::format("{}\n", rows));
    out.finish();
    if (!reader) printNothing();
  }

  void last() {
    const HistoryFilter wanted = filter();
    const bool isNow = options_.at.empty();
    const Date at = isNow ? now_ : requireInstant("--at", options_.at, now_);
    const auto reader = open();
    // Beside a clock that is slow a history can be of later.
    if (at > now_ && (!reader || at > require(reader->extent()).until))
      throw Failure(ExitStatus::usage, fmt::format("--at: {} is in the future", timeText(at)));
    HistoryLines form = lines();
    form.addAges(at);
    std::string text;
    form.header(text);
    std::vector<BeaconId> missing = wanted.beacons;
    // Without an instant, what was written last, whatever a wrong clock said.
    if (reader)
      for (const HistoryBeacon& one :
           require(isNow ? reader->latest() : reader->latestAt(wanted.beacons, at)))
        if (one.latest && (wanted.beacons.empty() || std::erase(missing, one.beacon) != 0))
          form.row(text, *one.latest);
    Output out(Output::Buffering::blocks);
    out.write(text);
    out.finish();
    if (!reader) return printNothing();
    const std::string before = isNow ? "" : " at or before " + timeText(at);
    for (const BeaconId& beacon : missing)
      printMessage(fmt::format("no reading of {}{}", settings_->nameOf(beacon), before));
  }

  void prune() {
    HistoryPruning pruning{.size = options_.keepSize};
    if (!options_.before.empty()) pruning.before = requireInstant("--before", options_.before, now_);
    if (!pruning.before && !pruning.size)
      throw Failure(ExitStatus::usage, "say what to delete: --before TIME or --keep-size SIZE");
    if (!open()) return printNothing();
    if (!confirmed("Delete the oldest rows of the history?", options_.yes)) return;
    const uint64_t pruned = require(pruneHistory(file_, pruning, now_));
    printMessage(counted(pruned, "row") + " deleted");
  }

  void check() {
    if (!open()) return printNothing();
    const auto problems = require(checkHistory(file_));
    if (problems.empty()) return printMessage(fmt::format("{} is sound", file_.string()));
    for (std::size_t i = 0; i + 1 < problems.size(); ++i)
      printMessage(fmt::format("brenloft: {}: {}", file_.string(), problems[i]));
    fail({Error::Kind::failed, problems.back()});
  }

  void backUp() {
    if (!open()) return printNothing();
    writeBackup(options_.out, options_.container,
                [this](const auto& copy) { return backUpHistory(file_, copy); });
  }

  const Options& options_;
  const std::filesystem::path file_;
  const Date now_;
  const std::shared_ptr<const Settings> settings_;
};

}  // namespace

ExitStatus runHistory(const HistoryCommandOptions& options) {
  installForStore(options.container);
  HistoryCommand(options).run();
  return ExitStatus::done;
}

}  // namespace brenloft
