#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Record.h"
#include "gateway/Sink.h"
#include "gateway/alarms/AlarmBook.h"
#include "gateway/beacons/BeaconBook.h"
#include "gateway/configuration/Settings.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// The line of work from what is heard to where it goes: each reading is judged, what is found in it is told
/// before and behind it, and all of it goes to the sinks in that order.
///
/// Nothing between the antenna and the sinks waits: readings are handed over to `queue`, and beyond
/// `kMostWaiting` of them they are dropped, counted, and told by a `gap`.
///
/// Threads: any, unless its comment says otherwise; sinks and handlers are called on `queue`. It must outlive
/// what waits on its queue: call `finish` first.
class Gateway {
 public:
  static constexpr uint64_t kMostWaiting = 10'000;

  /// Where the readings went that were heard.
  struct Census {
    uint64_t heard = 0;
    uint64_t dropped = 0;  ///< before they were judged
    BeaconCensus judged{};
  };

  Gateway(std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t queue,
          std::shared_ptr<const Settings> settings, BeaconChoice choice);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  // Before anything is heard.

  void add(std::shared_ptr<Sink> sink) { sinks_.push_back(std::move(sink)); }
  /// Where states are kept, too; what it kept before is in `kept`.
  void add(std::shared_ptr<KeepingSink> sink, const AlarmsKept& kept);
  /// Who calls the commands of alarms, and says so through `notified`; without it nobody does. Set it before
  /// something is added that kept states: notices of the last run may be among them.
  void setOnNotice(std::function<void(const AlarmNotice&)> onNotice) { onNotice_ = std::move(onNotice); }
  /// What is heard and not believed.
  void setOnRefused(std::function<void(const Reading&)> onRefused) { onRefused_ = std::move(onRefused); }

  void hear(Reading reading);
  /// The radio's state, as one line.
  void radio(bool isListening, std::string text);
  void setSettings(std::shared_ptr<const Settings> settings);
  void reopen();
  /// Flushes the sinks; call it when nothing more is heard, and run the queue until `onDone` was called on
  /// it.
  void finish(std::function<void()> onDone);

  // On the queue.

  Label labelOf(const BeaconId& beacon) const;
  Census census() const;
  const BeaconBook& book() const { return book_; }
  const AlarmBook& alarms() const { return alarms_; }
  /// The command of this notice was run.
  void notified(const AlarmNotice& notice) { alarms_.notified(notice.rule.name, notice.beacon); }

 private:
  void report(const Record& record);
  void reportGap();
  void reportEvent(const BeaconEvent& event, const KeptState& state);
  void keep(const KeptState& state);

  const std::shared_ptr<platform::DispatchService> dispatch_;
  const platform::dispatch_queue_t queue_;
  std::shared_ptr<const Settings> settings_;
  std::vector<std::shared_ptr<Sink>> sinks_;
  std::shared_ptr<KeepingSink> keeper_;  // one of the sinks
  std::function<void(const Reading&)> onRefused_;
  std::function<void(const AlarmNotice&)> onNotice_;
  std::atomic<uint64_t> heard_{0};
  std::atomic<uint64_t> waiting_{0};
  std::atomic<uint64_t> dropped_{0};
  uint64_t reportedDrops_ = 0;  // of those that were dropped
  BeaconBook book_;
  AlarmBook alarms_;
};

}  // namespace brenloft
