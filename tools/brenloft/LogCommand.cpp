#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "BrenloftSDK/SensorLogReader.h"
#include "platform/foundation/NSDateFormatter.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/RunLoop.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

constexpr std::chrono::milliseconds kFollowPeriod{500};

std::unique_ptr<SensorLogReader> openLog() {
  requireStore();
  std::string problem;
  auto reader = SensorLogReader::open(SensorLogReader::storeFile(), &problem);
  if (!reader) throw Failure(ExitStatus::storeUnusable, problem);
  return reader;
}

void require(bool succeeded, const SensorLogReader& reader) {
  if (!succeeded) throw Failure(ExitStatus::storeUnusable, reader.problem());
}

// Prints rows and remembers the newest, so that the next look begins behind it.
class RowPrinter {
 public:
  RowPrinter(Output& out, Format format) : out_(out), format_(format) {
    if (format_ == Format::table)
      out_.write(fmt::format("{:>8}  {:<27}  {:<7}  {}\n", "row", "last heard", "state", recordHeader()));
  }

  SensorLogReader::RowBlock block() {
    return [this](const SensorLogReader::Row& row) {
      newest_ = row.number;
      if (format_ == Format::table)
        writeRow(row);
      else
        writeLine(row);
      return !out_.isClosed();
    };
  }

  void showNew(SensorLogReader& reader) {
    const auto last = reader.lastNumber();
    require(last.has_value(), reader);
    if (*last < newest_) newest_ = 0;
    if (*last > newest_) require(reader.rowsAfter(newest_, block()), reader);
  }

 private:
  void writeRow(const SensorLogReader::Row& row) {
    const auto& date = row.values.statusUpdatedDate;
    out_.write(fmt::format("{:>8}  {:<27}  {:<7}  {}\n", row.number,
                           date ? platform::rfc3339Text(*date) : "-",
                           row.values.status == 2 ? "lost" : "present", recordRow(row.values)));
  }

  void writeLine(const SensorLogReader::Row& row) {
    writeRecord(line_, row.values);
    out_.write(line_.take());
  }

  Output& out_;
  const Format format_;
  JsonLine line_;
  int64_t newest_ = 0;
};

void follow(SensorLogReader& reader, RowPrinter& printer, Output& out, StopSignals& signals) {
  RunLoop loop(RunLoop::Clock::realTime);
  signals.watch([&] { loop.stop(); });
  while (!signals.isStopped() && !out.isClosed()) {
    loop.dispatch()->after(kFollowPeriod, loop.dispatch()->mainQueue(), [&] { loop.stop(); });
    loop.run();
    printer.showNew(reader);
  }
}

void show(const LogOptions& options) {
  // Before the first row, so that whoever waits for that may stop the rest.
  std::optional<StopSignals> signals;
  if (options.follow) signals.emplace();
  const auto reader = openLog();
  Output out(options.follow ? Output::Buffering::lines : Output::Buffering::blocks);
  RowPrinter printer(out, options.format);
  require(
      options.last ? reader->lastRows(*options.last, printer.block()) : reader->rowsAfter(0, printer.block()),
      *reader);
  if (signals) follow(*reader, printer, out, *signals);
  out.finish();
}

// A file that takes its name once it is whole.
class DocumentFile {
 public:
  explicit DocumentFile(const std::string& path) : path_(path), partial_(path + ".part") {
    errno = 0;
    file_ = std::fopen(partial_.c_str(), "wb");
    if (file_ == nullptr) fail();
  }
  DocumentFile(const DocumentFile&) = delete;
  DocumentFile& operator=(const DocumentFile&) = delete;
  ~DocumentFile() {
    if (file_ == nullptr) return;
    std::fclose(file_);
    std::remove(partial_.c_str());
  }

  void write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), file_) != text.size() && error_ == 0) error_ = errno;
  }

  void finish() {
    if (error_ == 0 && std::fflush(file_) != 0) error_ = errno;
    if (error_ == 0 && std::rename(partial_.c_str(), path_.c_str()) != 0) error_ = errno;
    if (error_ != 0) {
      errno = error_;
      fail();
    }
    std::fclose(std::exchange(file_, nullptr));
  }

 private:
  [[noreturn]] void fail() const {
    throw Failure(ExitStatus::failed, fmt::format("{}: {}", path_, std::generic_category().message(errno)));
  }

  std::string path_;
  std::string partial_;
  std::FILE* file_ = nullptr;
  int error_ = 0;
};

void exportDocument(const LogOptions& options) {
  const auto reader = openLog();
  const auto write = [&](const SensorLogReader::TextSink& sink) {
    require(reader->exportJSON(sink), *reader);
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
}

void count() {
  const auto reader = openLog();
  const auto rows = reader->count();
  require(rows.has_value(), *reader);
  Output out(Output::Buffering::blocks);
  out.write(fmt::format("{}\n", *rows));
  out.finish();
}

void deleteAll(const LogOptions& options) {
  const auto rows = openLog()->count();
  if (confirmed(fmt::format("Delete {} rows of the sensor log?", rows.value_or(0)), options.yes))
    BRLDataManager::Class::deleteBeaconLog();
}

}  // namespace

ExitStatus runLog(const LogOptions& options) {
  installForStore(options.container);
  switch (options.action) {
    case LogOptions::Action::show:
      show(options);
      break;
    case LogOptions::Action::exportDocument:
      exportDocument(options);
      break;
    case LogOptions::Action::count:
      count();
      break;
    case LogOptions::Action::deleteAll:
      deleteAll(options);
      break;
  }
  return ExitStatus::done;
}

}  // namespace brenloft
