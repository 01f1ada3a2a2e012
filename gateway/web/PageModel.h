#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "gateway/configuration/Settings.h"
#include "gateway/history/BatteryTrend.h"
#include "gateway/history/HistoryReader.h"

namespace brenloft::web {

/// What is amiss with a beacon; the worst first.
enum class Need : uint8_t { emergency, alarm, silent, battery, notHeard, info };

/// A quantity in pieces of one width, by time. None was heard where a piece is missing; the line is broken
/// there only where the beacon was absent or nothing listened. Else readings were merely thinned.
struct PageCurve {
  std::vector<HistoryPoint> points{};
  std::vector<std::size_t> breaks{};  ///< before these points
};

/// What charts show, in the order of `PageLayer::curves`.
inline constexpr std::array kPageQuantities{Quantity::temperature, Quantity::humidity, Quantity::rssi,
                                            Quantity::battery};
/// The same time at one fineness: the newest of it is there in finer layers, too.
struct PageLayer {
  HistorySpan span{};
  std::chrono::seconds width{};
  std::array<PageCurve, kPageQuantities.size()> curves{};
};

/// An emergency or an alarm on the charts.
struct PageMark {
  HistorySpan span{};
  std::string rule{};  ///< none: an emergency
};

struct RaisedAlarm {
  std::string rule;
  platform::Date since;
};

struct PageDay {
  platform::Date midnight;
  int32_t lowest = 0;  ///< hundredths of a degree
  int32_t highest = 0;
};

/// One beacon as of the end of the page's span.
struct PageBeacon {
  BeaconId id;
  Label label{};
  std::optional<Reading> latest{};
  bool isPresent = false;
  std::vector<Need> needs{};  ///< in their order
  std::optional<platform::Date> emergencySince{};
  std::vector<RaisedAlarm> raised{};
  std::vector<AlarmRule> rules{};  ///< what it is judged by
  std::optional<BatteryTrend> trend{};
  std::optional<platform::Date> empty{};  ///< when its battery will be, at that trend

  std::vector<HistorySpan> presence{};  ///< by time; outages are not taken out
  platform::Date knownSince{};          ///< before it the history tells nothing of its presence
  std::vector<PageMark> marks{};
  std::vector<PageDay> days{};
  PageCurve recent{};               ///< temperature in `PageModel::recent`
  std::vector<PageLayer> layers{};  ///< the whole span first, then finer ones

  /// What people call it; of an iBeacon without a name, what tells it from others: "1/2 of 51C70E2A".
  std::string name() const;
  /// Of what it is judged by; null for a rule that is no longer there.
  const AlarmRule* rule(const std::string& name) const;
  /// A raised alarm that merely tells something.
  bool isInfo(const RaisedAlarm& alarm) const;
  bool has(Need need) const { return std::ranges::find(needs, need) != needs.end(); }
};

/// What happened, and after how long: found after a silence, hearing again after an outage.
struct PageEvent {
  BeaconEvent event;
  std::optional<std::chrono::microseconds> after{};
};

/// Everything a page says; a value.
struct PageModel {
  HistorySpan span{};                   ///< `until` is its present
  HistorySpan recent{};                 ///< the last day of it
  std::chrono::seconds recentWidth{};   ///< of the pieces that show it
  std::vector<HistorySpan> outages{};   ///< nothing listened; by time
  std::vector<PageBeacon> beacons{};    ///< by place and name; those without a place last
  std::size_t omitted = 0;              ///< beacons beyond what a page holds
  bool isMoreOmitted = false;           ///< there may be still more, which were not counted
  std::vector<PageEvent> events{};      ///< the newest first
  std::size_t earlierEvents = 0;        ///< beyond what a page holds
  std::optional<HistorySpan> extent{};  ///< of the history; nothing without rows
  bool isWritten = true;                ///< else no process listens for it
  /// Where nothing listens now: since when, which may be before the span.
  std::optional<platform::Date> deafSince{};

  platform::Date now() const { return span.until; }
  /// Until when anything is known: its present, unless nothing listens.
  platform::Date knownUntil() const;
};

/// What is known of the end of a span.
struct PageEnd {
  bool isWritten = true;  ///< it is now, and a process goes on writing
  bool isPast = false;    ///< rows may have been heard after it
};

struct PageRequest {
  HistorySpan span{};               ///< both ends given
  std::vector<BeaconId> beacons{};  ///< none: all
  bool hasLayers = true;            ///< what charts show; else they ask for it themselves
  PageEnd end{};
};

/// Reads what a page shows. Strangers that were not heard in the span are left out; so is what the settings
/// ignore.
platform::Result<PageModel> readPageModel(HistoryReader& reader, const Settings& settings,
                                          const PageRequest& request);

}  // namespace brenloft::web
