#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gateway/Gateway.h"
#include "gateway/alarms/Notifier.h"
#include "gateway/configuration/LiveSettings.h"
#include "gateway/ear/Ear.h"
#include "gateway/formats/RecordFile.h"
#include "gateway/formats/TextFile.h"
#include "gateway/history/HistoryWriter.h"
#include "gateway/metrics/MetricsBook.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/RunLoop.h"
#include "tools/brenloft/Options.h"
#include "tools/brenloft/Strangers.h"

namespace brenloft {

/// The gateway of one search: hears what the library tells, and goes to the outputs that were asked for.
///
/// Threads: as its parts.
class SearchGateway {
 public:
  struct Handlers {
    Sink& shown;  ///< what stands on standard output
    std::function<void(const Reading&)> onRefused;
    std::function<void(std::string_view line)> onMessage;
  };

  /// Throws `Failure` for an output or a history that cannot be opened.
  SearchGateway(const SearchOptions& options, platform::RunLoop& loop, Handlers handlers);

  Ear& ear() { return ear_; }
  Gateway& line() { return line_; }
  /// The names of those that are raised. On the gateway's queue.
  std::vector<std::string> raisedAlarms(const BeaconId& beacon) const;
  void radio(const platform::RadioState& state);
  /// Reads the settings again and opens the files again.
  void reload();
  /// Everything heard so far has reached the outputs; nothing more may be heard.
  void finish();

 private:
  void notify(const AlarmNotice& notice);
  void warnOfPrograms(const Settings& settings) const;
  void addHistory(const SearchOptions& options);
  void addFile(const GatewayOptions::File& file, const SearchOptions& options);
  void addMetrics(const SearchOptions& options);
  std::string metricsText() const;
  Sink::StateHandler stateHandler(const std::string& name);

  platform::RunLoop& loop_;
  const Handlers handlers_;
  const platform::dispatch_queue_t queue_;
  const std::shared_ptr<LiveSettings> settings_;
  Gateway line_;
  Notifier notifier_;
  Ear ear_;
  Strangers strangers_;
  // What the metrics tell of.
  std::shared_ptr<MetricsBook> metrics_;    // null where nobody asks
  std::shared_ptr<HistoryWriter> history_;  // null where none is kept
  std::vector<std::pair<std::string, std::shared_ptr<RecordFile>>> files_;
};

}  // namespace brenloft
