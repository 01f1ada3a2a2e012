#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/bluetooth/radios/GapStatistics.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

struct SourceMonitorOptions {
  std::string record;                    ///< capture file that gets everything heard; "": none
  std::string capture;                   ///< capture file that is being heard; "": none
  bool isRadio = false;                  ///< as `Source::isRadio`
  std::optional<double> exitTime;        ///< seconds, to be held against the gaps of a radio
  std::function<platform::Date()> date;  ///< of the states that are recorded
  std::stop_token stop;                  ///< ends the wait for the reader of a pipe that is recorded to
  std::function<void(std::string_view line)> onMessage;
  /// Of a radio, or of the one that a capture was recorded from, and not for the state that ends the command:
  /// the command's last line tells it.
  std::function<void(const platform::RadioState& state)> onRadioState;
  std::function<void()> onUnusable;  ///< nothing will be heard; `finish` throws the reason
};

/// Stands between a source and who hears it: records, tells a radio's states, warns of an exit time that its
/// gaps make meaningless, and notices a radio that cannot be used at all.
///
/// Threads: made and asked on one; `wrap`'s result does its work on the source's queue.
class SourceMonitor : public std::enable_shared_from_this<SourceMonitor> {
 public:
  /// Throws `Failure` when the recording would overwrite what is being heard.
  static std::shared_ptr<SourceMonitor> make(SourceMonitorOptions options);

  /// Begins the recording; before the first report, and once nothing else can go wrong, for an earlier file
  /// of that name is gone then. Throws `Failure`.
  void begin();

  std::shared_ptr<platform::AdvertisingReportSource> wrap(
      std::shared_ptr<platform::AdvertisingReportSource> source);

  /// The same for a caller that reads reports and states itself.
  platform::AdvertisingReportSource::ReportHandler tee(
      platform::AdvertisingReportSource::ReportHandler onReport);
  void announce(const platform::RadioState& state);

  /// Hands what was recorded to the file.
  void flush();

  /// Ends the recording, and throws `Failure` for what the command must end with.
  void finish();

 private:
  class WrappedSource;
  explicit SourceMonitor(SourceMonitorOptions options);
  void want(const std::vector<platform::CBUUID>& services);
  void heard(const platform::AdvertisingReport& report);
  void changed(const platform::RadioState& state);
  void reportUnrecorded(const platform::Result<>& written);
  void fail(ExitStatus status, const std::string& line);

  SourceMonitorOptions options_;
  const bool takesReports_;
  bool wasOpened_ = false;
  bool wasPoweredOn_ = false;
  bool wasHeard_ = false;

  std::mutex mutex_;  // guards what follows; not held while anything is announced
  std::optional<platform::ExitTimeWarning> warning_;
  std::unique_ptr<platform::BtsnoopWriter> recording_;
  std::optional<Failure> failure_;
};

}  // namespace brenloft
