#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/bluetooth/radios/GapStatistics.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

struct ListenerOptions {
  std::string record;              ///< capture file that gets everything heard; "": none
  bool isRadio = false;            ///< as `Source::isRadio`
  std::optional<double> exitTime;  ///< seconds, to be held against the gaps of a radio
  std::function<void(std::string_view line)> onMessage;
  std::function<void(const platform::RadioState& state)> onRadioState;  ///< of a radio only
  std::function<void()> onUnusable;                                     ///< see `problem`
};

/// Stands between a source and who hears it: records, tells a radio's states, warns of an exit time that its
/// gaps make meaningless, and notices a radio that cannot be used at all.
///
/// Threads: made and asked on one; `wrap`'s result does its work on the source's queue.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  /// Throws `Failure` when the recording cannot be begun.
  static std::shared_ptr<Listener> make(ListenerOptions options);

  std::shared_ptr<platform::AdvertisingReportSource> wrap(
      std::shared_ptr<platform::AdvertisingReportSource> source);

  /// The same for a caller that reads reports itself.
  platform::AdvertisingReportSource::ReportHandler tee(
      platform::AdvertisingReportSource::ReportHandler onReport);

  /// Ends the recording, and throws `Failure` for what the command must end with.
  void finish();

 private:
  class WrappedSource;
  explicit Listener(ListenerOptions options);
  void heard(const platform::AdvertisingReport& report);
  void changed(const platform::RadioState& state);
  void fail(ExitStatus status, const std::string& line);

  ListenerOptions options_;
  std::optional<platform::ExitTimeWarning> warning_;
  bool wasPoweredOn_ = false;

  std::mutex mutex_;  // guards what follows
  std::unique_ptr<platform::BtsnoopWriter> recording_;
  std::optional<Failure> failure_;
};

}  // namespace brenloft
