#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/Record.h"
#include "gateway/beacons/BeaconBook.h"
#include "gateway/configuration/AlarmRule.h"
#include "gateway/history/HistoryWriter.h"

namespace brenloft {

struct AlarmMetrics {
  std::string name;
  AlarmSeverity severity;
  bool isRaised;
};

/// A beacon, with what is still true of it.
struct BeaconMetrics {
  BeaconId beacon;
  Label label{};
  std::optional<bool> isPresent{};  ///< none: nobody listens who could tell
  std::optional<platform::Date> heard{};
  uint64_t readings = 0;
  Quantities shown{};  ///< empty once it is silent
  std::optional<int32_t> rssi{};
  std::vector<AlarmMetrics> alarms{};
};

/// Where records go, by the name that its user gave it.
struct OutputMetrics {
  std::string name;
  bool isWorking;
  uint64_t dropped;
};

/// Everything that is told of a gateway at one moment; a value. What is absent or empty is not told.
struct MetricsSnapshot {
  std::string version{};
  platform::Date made{};
  bool isListening = true;
  std::vector<BeaconMetrics> beacons{};
  uint64_t omittedReadings = 0;  ///< of beacons that are not among them
  std::optional<BeaconCensus> judged{};
  uint64_t dropped = 0;  ///< readings, before they were judged
  std::optional<HistoryWriter::Counts> history{};
  std::vector<OutputMetrics> outputs{};
};

/// The `Content-Type` of the text.
inline constexpr std::string_view kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

/// The Prometheus text format, 0.0.4; docs/metrics.md describes each name. Pure.
std::string renderMetrics(const MetricsSnapshot& snapshot);

}  // namespace brenloft
