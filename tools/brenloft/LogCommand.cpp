#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "BrenloftSDK/SensorLogReader.h"
#include "gateway/Texts.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/RunLoop.h"
#include "tools/brenloft/BackupFile.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/DocumentFile.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/LogLimits.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SpanTexts.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

constexpr std::chrono::milliseconds kFollowPeriod{500};

template <class T>
T require(platform::Result<T> result) {
  if (!result) throw Failure(ExitStatus::storeUnusable, result.error().text);
  if constexpr (!std::is_void_v<T>) return *std::move(result);
}

// Nothing when there is no store yet: an empty log.
std::unique_ptr<SensorLogReader> openLog(const LogOptions& options) {
  const auto file = storeIn(options.container);
  return file ? require(SensorLogReader::open(*file)) : nullptr;
}

// Nothing where every row is wanted.
SensorLogReader::RowBlock rowsIn(const HistorySpan& span) {
  if (span.since == HistorySpan().since && span.until == HistorySpan().until) return {};
  return [span](const SensorLogReader::Row& row) {
    const auto& date = row.values.statusUpdatedDate;
    return date && span.contains(*date);
  };
}

// Prints rows and remembers the newest, so that the next look begins behind it.
class RowPrinter {
 public:
  RowPrinter(Output& out, const LogOptions& options, SensorLogReader::RowBlock isWanted)
      : out_(out),
        isWanted_(std::move(isWanted)),
        format_(options.format),
        times_(timeFormOf(options.time, options.format)),
        line_(timeFormOf(options.time, options.format)) {
    if (format_ == Format::table)
      out_.write(fmt::format("{:>8}  {:<{}}  {:<7}  {}\n", "row", "last heard", times_.wholeWidth(), "state",
                             recordHeader()));
  }

  SensorLogReader::RowBlock block() {
    return [this](const SensorLogReader::Row& row) {
      newest_ = row.number;
      if (isWanted_ && !isWanted_(row)) return true;
      isEmpty_ = false;
      if (format_ == Format::table)
        writeRow(row);
      else
        writeLine(row);
      return !out_.isClosed();
    };
  }

  bool isEmpty() const { return isEmpty_; }

  void showNew(SensorLogReader& reader) {
    if (require(reader.lastNumber()) > newest_) require(reader.rowsAfter(newest_, block()));
  }

 private:
  void writeRow(const SensorLogReader::Row& row) {
    const auto& date = row.values.statusUpdatedDate;
    out_.write(fmt::format("{:>8}  {:<{}}  {:<7}  {}\n", row.number, date ? times_.whole(*date) : "-",
                           times_.wholeWidth(), row.values.status == 2 ? "lost" : "present",
                           recordRow(row.values)));
  }

  void writeLine(const SensorLogReader::Row& row) {
    writeRecord(line_, row.values);
    out_.write(line_.take());
  }

  Output& out_;
  const SensorLogReader::RowBlock isWanted_;  // none: every row is
  const Format format_;
  TimeText times_;
  JsonLine line_;
  int64_t newest_ = 0;
  bool isEmpty_ = true;
};

// One look does not count: a store that is just being made cannot be opened yet.
class LogInTheMaking {
 public:
  std::unique_ptr<SensorLogReader> open(const LogOptions& options) {
    try {
      return openLog(options);
    } catch (const Failure&) {
      if (std::exchange(hasFailed_, true)) throw;
      return nullptr;
    }
  }

 private:
  bool hasFailed_ = false;
};

void follow(const LogOptions& options, std::unique_ptr<SensorLogReader> reader, RowPrinter& printer,
            Output& out, platform::RunLoop& loop) {
  LogInTheMaking log;
  while (!StopSignals::isStopped() && !out.isClosed()) {
    loop.dispatch()->after(kFollowPeriod, loop.dispatch()->mainQueue(), [&] { loop.stop(); });
    loop.run();
    out.checkReader();
    if (!reader) reader = log.open(options);
    if (reader) printer.showNew(*reader);
  }
}

void show(const LogOptions& options, const HistorySpan& span) {
  std::optional<platform::RunLoop> loop;  // outlives the thread that stops it
  std::optional<StopSignals> signals;
  if (options.follow) {
    // Before the first row, so that whoever waits for that may stop the rest.
    loop.emplace(platform::RunLoop::Clock::realTime);
    signals.emplace();
    signals->watch([&] { loop->stop(); });
  }
  auto reader = openLog(options);
  Output out(options.follow ? Output::Buffering::lines : Output::Buffering::blocks);
  RowPrinter printer(out, options, rowsIn(span));
  if (reader)
    require(options.last ? reader->lastRows(*options.last, printer.block())
                         : reader->rowsAfter(0, printer.block()));
  if (printer.isEmpty()) printEmpty("no rows", options.container);
  if (loop) follow(options, std::move(reader), printer, out, *loop);
  out.finish();
}

void exportDocument(const LogOptions& options, const HistorySpan& span) {
  const auto reader = openLog(options);
  const auto write = [&](const SensorLogReader::TextSink& sink) {
    if (reader)
      require(reader->exportJSON(sink, rowsIn(span)));
    else
      sink("[]");
    sink("\n");
  };
  if (options.out.empty()) {
    Output out(Output::Buffering::blocks);
    write([&](std::string_view text) { out.write(text); });
    out.finish();
  } else {
    DocumentFile file(options.out);
    write([&](std::string_view text) { file.write(text); });
    file.finish();
  }
  if (!reader) printEmpty("no rows", options.container);
}

uint64_t rowsOf(const LogOptions& options, const HistorySpan& span) {
  const auto reader = openLog(options);
  if (!reader) return 0;
  const auto isWanted = rowsIn(span);
  if (!isWanted) return require(reader->count());
  uint64_t rows = 0;
  require(reader->rowsAfter(0, [&](const auto& row) { return rows += isWanted(row), true; }));
  return rows;
}

void count(const LogOptions& options, const HistorySpan& span) {
  const uint64_t rows = rowsOf(options, span);
  Output out(Output::Buffering::blocks);
  out.write(fmt::format("{}\n", rows));
  out.finish();
  if (rows == 0) printEmpty("no rows", options.container);
}

void deleteRows(const LogOptions& options, platform::Date now) {
  if (!options.before.empty()) {
    const platform::Date before = requireInstant("--before", options.before, now);
    if (!openLog(options)) return printEmpty("no rows", options.container);
    const std::string date = TimeText(TimeForm::local).whole(before);
    if (!confirmed(fmt::format("Delete the rows of the sensor log from before {}?", date), options.yes))
      return;
    LogLimits limits({.longest = now - before});
    while (limits.step(now)) {
    }
    return printMessage(counted(limits.deleted(), "row") + " deleted");
  }
  const uint64_t rows = rowsOf(options, {});
  if (!confirmed(fmt::format("Delete {} of the sensor log?", counted(rows, "row")), options.yes)) return;
  // Deleting nothing would make a store where there is none.
  if (rows != 0) BRLDataManager::Class::deleteBeaconLog();
}

void check(const LogOptions& options) {
  const auto reader = openLog(options);
  if (!reader) return printEmpty("no log", options.container);
  const std::string file = SensorLogReader::storeFile().string();
  const auto problems = require(reader->check());
  if (problems.empty()) return printMessage(fmt::format("{} is sound", file));
  for (std::size_t i = 0; i + 1 < problems.size(); ++i)
    printMessage(fmt::format("brenloft: {}: {}", file, problems[i]));
  throw Failure(ExitStatus::storeUnusable, file + ": " + problems.back());
}

void backUp(const LogOptions& options) {
  const auto reader = openLog(options);
  if (!reader) return printEmpty("no log", options.container);
  writeBackup(options.out, options.container, [&](const auto& copy) { return reader->copyTo(copy); });
}

}  // namespace

ExitStatus runLog(const LogOptions& options) {
  installForStore(options.container);
  const platform::Date now = platform::RealTimeDispatch::make()->date();
  const HistorySpan span = spanFromTexts(options.since, options.until, now);
  switch (options.action) {
    case LogOptions::Action::show:
      show(options, span);
      break;
    case LogOptions::Action::exportDocument:
      exportDocument(options, span);
      break;
    case LogOptions::Action::count:
      count(options, span);
      break;
    case LogOptions::Action::deleteRows:
      deleteRows(options, now);
      break;
    case LogOptions::Action::check:
      check(options);
      break;
    case LogOptions::Action::backUp:
      backUp(options);
      break;
  }
  printSettingsProblems();
  return ExitStatus::done;
}

}  // namespace brenloft
