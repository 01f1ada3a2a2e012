#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Sink.h"
#include "gateway/beacons/GapLearner.h"
#include "gateway/configuration/Settings.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/metrics/Metrics.h"

namespace brenloft {

/// What records tell for the metrics: the newest of each beacon. It takes them as they are heard, or as they
/// are read from a history.
///
/// Beacons of the settings are always told, also while they are not there. A stranger is told while it is
/// there, and of strangers so many at the most: anybody's device can send a new identifier every second, and
/// every one is a series that somebody keeps for years. A place is free again once its beacon was silent for
/// a day. The readings of the others are counted.
///
/// Values are told while their beacon is there and the radio listens. Where it is not known whether anybody
/// would tell its loss, they must also be fresh: for three of its usual gaps or as long as its silence may
/// last, and a minute at least. When they are not, the presence is not known either: a history goes on saying
/// that a beacon is there when its writer was killed.
///
/// Threads: one call at a time.
class MetricsBook final : public Sink {
 public:
  static constexpr std::size_t kMostStrangers = 100;

  /// Those in force; it may be called from any call of the book's.
  using CurrentSettings = std::function<std::shared_ptr<const Settings>()>;
  explicit MetricsBook(CurrentSettings settings) : settings_(std::move(settings)) {}

  /// What a history knew before the first record. `radioState` is what its newest event of the radio says.
  void restore(const std::vector<KeptState>& states, const std::vector<HistoryBeacon>& beacons,
               const std::optional<std::string>& radioState = std::nullopt);
  void accept(const Record& record) override;
  /// Nobody writes the history any more. Whoever does next tells no loss of what it has not heard itself.
  void writerEnded();
  void flush() override {}
  State state() const override { return {}; }

  /// What it knows of a snapshot: the beacons, what was left out, and whether the radio listens. `isWritten`
  /// is of a history that the records come out of: where no process writes it any more, nothing listens;
  /// where one does, it tells each loss, and what it wrote itself need not be fresh: it may have been
  /// thinned.
  MetricsSnapshot snapshot(platform::Date now, std::optional<bool> isWritten = std::nullopt) const;

 private:
  struct Entry {
    explicit Entry(std::optional<GapLearner::Time> expected) : gaps(expected) {}

    std::optional<Reading> reading{};
    uint64_t readings = 0;
    GapLearner gaps;
    bool isPresent = false;
    bool isCarried = false;  // of an earlier writer: this one may not have heard it
    std::set<std::string> raised{};
  };

  Entry* entryOf(const BeaconId& beacon, platform::Date now);
  Entry* find(const BeaconId& beacon);
  bool makeRoom(const Settings& settings, platform::Date now);
  static void take(const Reading& reading, Entry& entry);
  void take(const BeaconEvent& event);
  BeaconMetrics metricsOf(const BeaconId& beacon, const Entry* entry, const Settings& settings,
                          platform::Date now, std::optional<bool> isWritten) const;

  const CurrentSettings settings_;
  std::map<BeaconId, Entry> entries_;
  uint64_t omittedReadings_ = 0;
  bool isListening_ = true;
};

}  // namespace brenloft
