#include <atomic>
#include <chrono>
#include <stop_token>
#include <string>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "platform/bluetooth/ADStructures.h"
#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/capture/CaptureReader.h"
#include "platform/foundation/Hex.h"
#include "platform/location/iBeaconFrame.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/Source.h"
#include "tools/brenloft/SourceMonitor.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

using platform::AdvertisingReport;
using platform::CBUUID;
using platform::DataView;

// Prints what was heard, report by report or as a central delivers it.
class HeardPrinter {
 public:
  HeardPrinter(const HearOptions& options, Output& out)
      : options_(options),
        out_(out),
        times_(timeFormOf(options.time, options.format)),
        line_(timeFormOf(options.time, options.format)) {}

  /// Once the source is there.
  void begin() {
    if (options_.format == Format::table)
      out_.write(fmt::format("{:<{}}  {:<17}  {:<15}  {:>4}  {:<14}  {}\n", "time", times_.wholeWidth(),
                             "address", "kind", "rssi", "uuids", "manufacturer data, readings"));
    else if (options_.format == Format::csv)
      out_.write(fmt::format("time,address,kind,rssi,uuids,manufacturer,{}\n", readingsNames()));
    out_.flushSoon();
  }

  void print(const AdvertisingReport& report) {
    if (isFull()) return;
    ++printed_;
    if (options_.merged) {
      const auto merged = merger_.merge(report);
      const auto& data = merged->data;
      print(report, data.serviceUUIDs.value_or(std::vector<CBUUID>()),
            data.manufacturerData ? std::optional<DataView>(*data.manufacturerData) : std::nullopt);
    } else {
      structures_.read(report.data);
      print(report, structures_.serviceUUIDs, structures_.manufacturerData);
    }
    out_.flushSoon();
  }

  bool isFull() const { return options_.count != 0 && printed_ >= options_.count; }

 private:
  void print(const AdvertisingReport& report, const std::vector<CBUUID>& uuids,
             std::optional<DataView> manufacturer) {
    const bool isFrame = manufacturer && !platform::holdsAppleMessages(*manufacturer);
    const auto readings = isFrame ? BRLSensorReadings::fromFrame(*manufacturer) : std::nullopt;
    switch (options_.format) {
      case Format::table:
        return writeRow(report, uuids, manufacturer, readings);
      case Format::csv:
        return writeFields(report, uuids, manufacturer, readings);
      case Format::jsonl:
        return writeLine(report, uuids, manufacturer, readings);
    }
  }

  void writeLine(const AdvertisingReport& report, const std::vector<CBUUID>& uuids,
                 std::optional<DataView> manufacturer, const std::optional<BRLSensorReadings>& readings) {
    line_.beginObject();
    line_.plainKey("time");
    line_.date(report.time);
    line_.plainKey("address").text(report.address.text());
    line_.plainKey("kind").text(textOf(report.kind));
    line_.plainKey("rssi").number(report.rssi);
    line_.plainKey("uuids").beginArray();
    for (const CBUUID& uuid : uuids) line_.text(uuid.UUIDString());
    line_.endArray();
    line_.plainKey("manufacturer");
    if (manufacturer)
      line_.hex(*manufacturer);
    else
      line_.null();
    line_.plainKey("readings");
    writeReadings(line_, readings);
    line_.endObject();
    out_.write(line_.take());
  }

  void writeRow(const AdvertisingReport& report, const std::vector<CBUUID>& uuids,
                std::optional<DataView> manufacturer, const std::optional<BRLSensorReadings>& readings) {
    const std::string texts = joined(uuids, ",");
    out_.write(fmt::format("{}  {}  {:<15}  {:>4}  {:<14}  {}{}\n", times_.whole(report.time),
                           report.address.text(), textOf(report.kind), report.rssi,
                           texts.empty() ? "-" : texts, manufacturer ? platform::hexText(*manufacturer) : "-",
                           readings ? "  " + readingsText(*readings) : ""));
  }

  void writeFields(const AdvertisingReport& report, const std::vector<CBUUID>& uuids,
                   std::optional<DataView> manufacturer, const std::optional<BRLSensorReadings>& readings) {
    fields_.clear();
    times_.appendWhole(report.time, fields_);
    fields_.append(",").append(report.address.text()).append(",").append(textOf(report.kind)).append(",");
    fields_.append(fmt::format_int(report.rssi).c_str()).append(",").append(joined(uuids, " ")).append(",");
    if (manufacturer) fields_ += platform::hexText(*manufacturer);
    fields_ += ',';
    appendReadings(fields_, readings);
    out_.write(fields_ += '\n');
  }

  static std::string joined(const std::vector<CBUUID>& uuids, std::string_view separator) {
    std::string texts;
    for (const CBUUID& uuid : uuids) {
      if (!texts.empty()) texts += separator;
      texts += uuid.UUIDString();
    }
    return texts;
  }

  const HearOptions& options_;
  Output& out_;
  TimeText times_;
  JsonLine line_;
  std::string fields_;
  platform::ADStructures structures_;
  platform::AdvertisementMerger merger_;
  std::atomic<uint64_t> printed_{0};
};

// Straight through, in the order of the file, whatever its clock does.
void readCapture(const HearOptions& options, const std::string& file, HeardPrinter& printer, Output& out,
                 StopSignals& signals) {
  std::stop_source stop;
  signals.watch([stop]() mutable { stop.request_stop(); });
  ProgressBar progress;
  const auto printLine = [&](std::string_view line) {
    progress.clear();
    printMessage(line);
  };
  const auto onDiagnostic = [&](const platform::CaptureDiagnostic& diagnostic) {
    printLine(diagnostic.line());
  };
  const auto onRadioState = [&](const platform::RadioState& state) { printLine(radioLine(state)); };
  const auto opened = platform::CaptureReader::open(file, onDiagnostic, stop.get_token());
  if (!opened) throw Failure(ExitStatus::failed, opened.error().text);
  const auto& reader = *opened;
  const auto monitor = SourceMonitor::make({.record = options.record,
                                            .capture = file,
                                            .date = [&] { return reader->time(); },
                                            .stop = stop.get_token(),
                                            .onMessage = printLine,
                                            .onRadioState = onRadioState});
  const auto recorded = monitor->tee([&](const AdvertisingReport& report) { printer.print(report); });

  monitor->begin();
  printer.begin();
  std::optional<platform::Date> end;
  while (!stop.stop_requested() && !out.isClosed() && !printer.isFull()) {
    const auto next = reader->next();
    if (next == platform::CaptureReader::Next::end) break;
    if (reader->size()) progress.show(reader->position(), *reader->size());
    if (next == platform::CaptureReader::Next::skipped) continue;
    if (!end && options.duration) end = reader->time() + *options.duration;
    if (end && reader->time() >= *end) break;
    if (next == platform::CaptureReader::Next::state) monitor->announce(reader->radioState());
    reader->read(recorded);
  }
  progress.clear();
  monitor->finish();
}

// Ends the loop when nobody reads any more, which a source that is silent would not show.
void watchReader(platform::RunLoop& loop, Output& out) {
  if (loop.isVirtual()) return;
  out.flush();  // what a burst that takes long has written so far
  out.checkReader();
  if (out.isClosed()) return loop.stop();
  loop.dispatch()->after(Output::kReaderCheck, loop.dispatch()->mainQueue(), [&] { watchReader(loop, out); });
}

// Everything else comes at its own time.
void hearSource(const HearOptions& options, HeardPrinter& printer, Output& out, StopSignals& signals) {
  std::stop_source stop;
  signals.watch([stop]() mutable { stop.request_stop(); });
  platform::Source source;
  source = openSource(
      options.source,
      {.onEnd = [&] { source.loop->stop(); }, .onMessage = printMessage, .stop = stop.get_token()});
  platform::RunLoop& loop = *source.loop;
  const std::stop_callback onStop(stop.get_token(), [&] { loop.stop(); });
  const auto monitor =
      SourceMonitor::make({.record = options.record,
                           .capture = source.capture,
                           .isRadio = source.isRadio,
                           .date = [&] { return loop.dispatch()->date(); },
                           .stop = stop.get_token(),
                           .onMessage = printMessage,
                           .onRadioState = [](const auto& state) { printMessage(radioLine(state)); },
                           .onUnusable = [&] { loop.stop(); }});
  const auto reports = monitor->wrap(source.reports);
  monitor->begin();
  printer.begin();
  out.setOnClosed([&] { loop.stop(); });
  watchReader(loop, out);
  reports->open(
      [&](const AdvertisingReport& report) {
        printer.print(report);
        if (out.isClosed() || printer.isFull()) loop.stop();
      },
      [](const platform::RadioState&) {});
  reports->startScan({});
  if (options.duration) loop.callAfter(*options.duration, [&] { loop.stop(); });
  loop.run();
  stop.request_stop();  // nobody waits for a pipe any more
  reports->stopScan();
  reports->close();
  monitor->finish();
}

}  // namespace

ExitStatus runHear(const HearOptions& options) {
  const std::string file = platform::captureFileOf(options.source);
  StopSignals signals;  // before any other thread, and until the last of the output is taken
  Output out(platform::isReadAtOnce(options.source) ? Output::Buffering::blocks : Output::Buffering::bursts);
  HeardPrinter printer(options, out);
  if (file.empty())
    hearSource(options, printer, out, signals);
  else
    readCapture(options, file, printer, out, signals);
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
