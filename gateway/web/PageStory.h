#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// What the events tell of one beacon.
struct BeaconStory {
  std::vector<HistorySpan> presence{};
  std::vector<PageMark> marks{};
  std::optional<platform::Date> emergencySince{};
  std::map<std::string, platform::Date> raised{};  ///< by rule
  /// Nothing where no event told of its presence.
  std::optional<bool> isPresent{};
  std::optional<platform::Date> lostAt{};
  /// When it was found, where nothing was told of it before.
  std::optional<platform::Date> foundFirst{};
};

/// Follows the events of a history up to the end of a span, in their order, also those before the span: what
/// began there may go on. A value.
class PageStory {
 public:
  /// So many events of the span are kept, the newest.
  static constexpr std::size_t kMostEvents = 1000;
  /// A restart that is quicker misses nothing that anybody would see.
  static constexpr std::chrono::minutes kLeastStop{1};

  explicit PageStory(HistorySpan span) : span_(span) {}

  /// Whether the event tells that hearing begins although nothing told that it had ended: the program was
  /// started. Then `silentFrom` is when the last row before it was heard.
  bool isStart(const BeaconEvent& event) const;
  void take(const BeaconEvent& event, std::optional<platform::Date> silentFrom = std::nullopt);
  /// What goes on, goes on until the end, or until nothing listens. `heardLast` is the newest row's time:
  /// where no process writes rows any more, or for long none came, nothing has listened since.
  void finish(platform::Date heardLast, bool isWritten);

  const BeaconStory* find(const BeaconId& beacon) const;
  const std::vector<HistorySpan>& outages() const { return outages_; }
  /// Since when nothing listens, where nothing does at the end.
  std::optional<platform::Date> deafSince() const { return silentSince_; }
  /// The oldest first.
  const std::deque<PageEvent>& events() const { return events_; }
  std::size_t earlierEvents() const { return earlierEvents_; }

 private:
  struct Open {
    BeaconStory story{};
    std::optional<platform::Date> presentSince{};
  };

  std::optional<std::chrono::microseconds> pauseBefore(const BeaconEvent& event) const;
  void radio(const BeaconEvent& event, std::optional<platform::Date> silentFrom);
  void beacon(Open& open, const BeaconEvent& event, bool isFirst);
  /// What of it lies in the span.
  std::optional<HistorySpan> inSpan(HistorySpan part) const;
  void addPresence(Open& open, HistorySpan part) const;
  void addMark(Open& open, HistorySpan part, const std::string& rule) const;
  void addOutage(HistorySpan part);

  const HistorySpan span_;
  std::map<BeaconId, Open> beacons_;
  std::optional<platform::Date> silentSince_;  // the radio
  std::vector<HistorySpan> outages_;
  std::deque<PageEvent> events_;
  std::size_t earlierEvents_ = 0;
};

}  // namespace brenloft::web
