#include "platform/sources/Recording.h"

#include <filesystem>
#include <mutex>
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
        recorder_(std::make_shared<Recorder>(std::move(recording), source, std::move(onProblem))) {}
  RecordedSource(const RecordedSource&) = delete;
  RecordedSource& operator=(const RecordedSource&) = delete;
  ~RecordedSource() override { close(); }

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(
        [recorder = recorder_, onReport = std::move(onReport)](const AdvertisingReport& report) {
          recorder->write(report);
          onReport(report);
        },
        [recorder = recorder_, onState = std::move(onState)](const RadioState& state) {
          recorder->changed(state);
          onState(state);
        });
  }
  void startScan(const std::vector<CBUUID>& services) override { source_->startScan(services); }
  // Whoever hears no more may read the file.
  void stopScan() override {
    source_->stopScan();
    recorder_->flush();
  }
  void close() override {
    source_->close();
    recorder_->flush();
  }

 private:
  // Written to on the source's queue, flushed by whoever stops it.
  class Recorder {
   public:
    Recorder(std::unique_ptr<BtsnoopWriter> file, const Source& source, LogSink onProblem)
        : file_(std::move(file)),
          loop_(source.loop),
          takesStates_(source.isRadio),
          onProblem_(std::move(onProblem)) {}

    void write(const AdvertisingReport& report) {
      tell([&](BtsnoopWriter& file) { return file.write(report); });
    }
    // What is no radio is on when it is opened. What it tells later, it was recorded with.
    void changed(const RadioState& state) {
      if (!std::exchange(takesStates_, true)) return;
      tell([&](BtsnoopWriter& file) { return file.write(loop_->dispatch()->date(), state); });
    }
    void flush() {
      tell([](BtsnoopWriter& file) { return file.flush(); });
    }

   private:
    template <class Work>
    void tell(const Work& work) {
      std::unique_lock lock(mutex_);
      const Result<> written = work(*file_);
      lock.unlock();
      if (!written && onProblem_) onProblem_(written.error().text + "; from here on nothing is recorded");
    }

    std::mutex mutex_;  // guards the file
    const std::unique_ptr<BtsnoopWriter> file_;
    const std::shared_ptr<RunLoop> loop_;
    bool takesStates_;  // on the source's queue
    const LogSink onProblem_;
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
