#include "platform/sources/Recording.h"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/bluetooth/capture/BtsnoopWriter.h"

namespace platform {
namespace {

class RecordedSource final : public AdvertisingReportSource {
 public:
  RecordedSource(std::unique_ptr<BtsnoopWriter> recording, const Source& source, LogSink onProblem)
      : source_(source.reports),
        recorder_(std::make_shared<Recorder>(
            Recorder{std::move(recording), source.loop, source.isRadio, std::move(onProblem)})) {}
  RecordedSource(const RecordedSource&) = delete;
  RecordedSource& operator=(const RecordedSource&) = delete;
  ~RecordedSource() override { close(); }

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(
        [recorder = recorder_, onReport = std::move(onReport)](const AdvertisingReport& report) {
          recorder->check(recorder->file->write(report));
          onReport(report);
        },
        [recorder = recorder_, onState = std::move(onState)](const RadioState& state) {
          recorder->changed(state);
          onState(state);
        });
  }
  void startScan(const std::vector<CBUUID>& services) override { source_->startScan(services); }
  void stopScan() override { source_->stopScan(); }
  void close() override {
    source_->close();
    recorder_->check(recorder_->file->flush());
  }

 private:
  // On the source's queue, and after it.
  struct Recorder {
    std::unique_ptr<BtsnoopWriter> file;
    std::shared_ptr<RunLoop> loop;
    bool takesStates;
    LogSink onProblem;

    void check(const Result<>& written) const {
      if (!written && onProblem) onProblem(written.error().text + "; from here on nothing is recorded");
    }
    // What is no radio is on when it is opened. What it tells later, it was recorded with.
    void changed(const RadioState& state) {
      if (std::exchange(takesStates, true)) check(file->write(loop->dispatch()->date(), state));
    }
  };

  const std::shared_ptr<AdvertisingReportSource> source_;
  const std::shared_ptr<Recorder> recorder_;
};

}  // namespace

Result<Source> recordTo(const std::string& path, Source source, LogSink onProblem) {
  std::error_code absent;
  if (std::filesystem::equivalent(path, source.capture, absent))
    return Error{Error::Kind::unsupported, "the recording would overwrite the capture that is read: " + path};
  auto recording = BtsnoopWriter::create(path);
  if (!recording) return recording.error();
  source.reports = std::make_shared<RecordedSource>(*std::move(recording), source, std::move(onProblem));
  return source;
}

}  // namespace platform
