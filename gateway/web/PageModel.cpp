#include "gateway/web/PageModel.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "gateway/alarms/AlarmBook.h"
#include "gateway/web/LocalTime.h"
#include "gateway/web/PageReading.h"

namespace brenloft::web {
namespace {

using namespace std::chrono_literals;
using platform::Date;
using Seconds = std::chrono::seconds;

constexpr std::size_t kMostBeacons = 500;
constexpr int64_t kMostDays = 31;
constexpr Seconds kDayPiece = 15min;  // every zone's days begin at one
constexpr int32_t kLowBattery = 10;   // percent
constexpr auto kSoonEmpty = std::chrono::days(30);

// All charts of a page have about so many pieces, and one chart no more than a screen has columns.
constexpr std::size_t kPieces = 40'000;
constexpr std::size_t kMostPieces = 720;
constexpr std::size_t kLeastPieces = 96;
constexpr std::size_t kRecentPieces = 48;

class ModelReader {
 public:
  ModelReader(HistoryReader& reader, const Settings& settings, const PageRequest& request)
      : reader_(reader), settings_(settings), request_(request) {
    page_.span = request.span;
    page_.recent = {std::max(page_.span.since, page_.now() - std::chrono::days(1)), page_.now()};
    page_.recentWidth = widthFor(lengthOf(page_.recent), kRecentPieces);
  }

  PageModel read() {
    const HistorySpan extent = require(reader_.extent());
    if (extent.since < extent.until) page_.extent = extent;
    const auto heard = heardBeacons();
    page_.isWritten = request_.end.isWritten;
    choose(heard);
    std::vector<BeaconId> chosen;
    for (const PageBeacon& beacon : page_.beacons) chosen.push_back(beacon.id);
    const PageStory story = readStory(reader_, page_.span, request_.end, std::move(chosen));
    page_.outages = story.outages();
    page_.deafSince = story.deafSince();
    page_.earlierEvents = story.earlierEvents();
    for (PageBeacon& beacon : page_.beacons) complete(beacon, story.find(beacon.id));
    takeEvents(story);
    return std::move(page_);
  }

 private:
  using Heard = std::map<BeaconId, std::optional<Reading>>;

  bool isAsked(const BeaconId& id) const {
    const BeaconSettings* known = settings_.beacon(id);
    if (known != nullptr && known->ignore) return false;
    return request_.beacons.empty() || std::ranges::find(request_.beacons, id) != request_.beacons.end();
  }
  // Without any in the settings, nobody is a stranger.
  bool isKnown(const BeaconId& id) const {
    return settings_.beacons.empty() || settings_.beacon(id) != nullptr;
  }

  // Those that are shown also where a flood of others was heard since.
  std::vector<BeaconId> asked() const {
    std::vector<BeaconId> asked = settings_.named();
    asked.insert(asked.end(), request_.beacons.begin(), request_.beacons.end());
    return asked;
  }

  // Each beacon's newest reading before the end.
  Heard heardBeacons() {
    Heard heard;
    const std::vector<BeaconId> asked = this->asked();
    std::vector<BeaconId> askedSince;
    std::vector<BeaconId> othersSince;
    for (const HistoryBeacon& one : require(reader_.latest(HistoryReader::kMostBeacons, asked))) {
      if (!isAsked(one.beacon)) continue;
      std::optional<Reading>& latest = heard[one.beacon];
      if (!one.latest) continue;
      if (heardAt(one.latest->record) < page_.now())
        latest = std::get<Reading>(one.latest->record);
      else
        (std::ranges::find(asked, one.beacon) == asked.end() ? othersSince : askedSince)
            .push_back(one.beacon);
    }
    for (auto& [id, latest] : latestIn(reader_, askedSince, {.until = page_.now()}))
      heard[id] = std::move(latest);
    for (auto& [id, latest] : latestIn(reader_, othersSince, page_.span)) heard[id] = std::move(latest);
    return heard;
  }

  // The beacons of the settings first, then those heard last; what a page has no room for is counted.
  void choose(const Heard& heard) {
    std::vector<PageBeacon> chosen;
    for (const auto& [id, latest] : heard)
      if (latest && (latest->heard >= page_.span.since || settings_.beacon(id) != nullptr))
        chosen.push_back({.id = id, .label = settings_.labelOf(id), .latest = latest});
    for (const auto& [id, known] : settings_.beacons) {
      const auto found = heard.find(id);
      if (isAsked(id) && (found == heard.end() || !found->second))
        chosen.push_back({.id = id, .label = settings_.labelOf(id)});
    }
    std::ranges::stable_sort(chosen, [this](const PageBeacon& a, const PageBeacon& b) {
      const auto rank = [this](const PageBeacon& one) {
        return std::pair(settings_.beacon(one.id) == nullptr,
                         one.latest ? page_.now() - one.latest->heard : std::chrono::microseconds::max());
      };
      return rank(a) < rank(b);
    });
    if (chosen.size() > kMostBeacons) {
      page_.omitted = chosen.size() - kMostBeacons;
      page_.isMoreOmitted = heard.size() >= HistoryReader::kMostBeacons;
      chosen.erase(chosen.begin() + kMostBeacons, chosen.end());
    }
    std::ranges::sort(chosen, {}, [](const PageBeacon& one) {
      return std::tuple(one.label.place.empty(), one.label.place, one.name(), one.id);
    });
    page_.beacons = std::move(chosen);
  }

  void complete(PageBeacon& beacon, const BeaconStory* story) {
    for (const AlarmRule& rule : settings_.alarms)
      if (AlarmBook::concerns(rule, beacon.id, settings_.beacon(beacon.id))) beacon.rules.push_back(rule);
    beacon.isPresent = isPresent(story, beacon.latest);
    beacon.presence = presenceOf(story, beacon.isPresent, page_.span);
    beacon.knownSince = knownSince(story, page_.extent.value_or(page_.span));
    if (story != nullptr) {
      beacon.emergencySince = story->emergencySince;
      for (const auto& [rule, since] : story->raised) beacon.raised.push_back({rule, since});
      beacon.marks = story->marks;
    }
    if (beacon.latest) {
      readBattery(beacon);
      readCurves(beacon);
    }
    beacon.needs = needsOf(beacon);
  }

  void readBattery(PageBeacon& beacon) {
    const Reading& latest = *beacon.latest;
    beacon.trend = require(readBatteryTrend(reader_, latest));
    if (!beacon.trend || beacon.trend->perDay >= 0) return;
    const std::chrono::duration<double, std::chrono::days::period> left(*latest.shown.battery /
                                                                        -beacon.trend->perDay);
    if (left < std::chrono::days(10 * 365))
      beacon.empty = latest.heard + std::chrono::duration_cast<Seconds>(left);
  }

  void readCurves(PageBeacon& beacon) {
    const auto silences = silencesOf(page_.span, beacon.presence, page_.outages);
    beacon.recent =
        curveOf(require(reader_.pieces(beacon.id, Quantity::temperature, page_.recent, page_.recentWidth)),
                page_.recentWidth, silences);
    readDays(beacon);
    if (!request_.hasLayers) return;
    const std::size_t pieces = std::clamp(kPieces / page_.beacons.size(), kLeastPieces, kMostPieces);
    const auto add = [&](const HistorySpan& span, std::size_t most) {
      beacon.layers.push_back(readLayer(reader_, beacon.id, span, most, silences));
    };
    add(page_.span, pieces);
    // The newest in more detail, where people look closer; in tenths of the pieces.
    for (const auto& [days, part] : {std::pair(30, 5), std::pair(7, 5), std::pair(1, 4)})
      if (const std::chrono::days span(days); lengthOf(page_.span) >= 2 * span)
        add({page_.now() - span, page_.now()}, pieces * static_cast<std::size_t>(part) / 10);
  }

  void readDays(PageBeacon& beacon) {
    const Date first = std::max(page_.span.since, page_.now() - std::chrono::days(kMostDays - 1));
    const HistorySpan span{midnight(first) < page_.span.since ? page_.span.since : midnight(first),
                           page_.now()};
    for (const HistoryPoint& piece :
         require(reader_.pieces(beacon.id, Quantity::temperature, span, kDayPiece))) {
      const Date day = midnight(std::max(piece.start, span.since));
      if (beacon.days.empty() || beacon.days.back().midnight != day)
        beacon.days.push_back({day, piece.minimum, piece.maximum});
      PageDay& last = beacon.days.back();
      last.lowest = std::min(last.lowest, piece.minimum);
      last.highest = std::max(last.highest, piece.maximum);
    }
  }

  std::vector<Need> needsOf(const PageBeacon& beacon) const {
    std::vector<Need> needs;
    if (!beacon.latest) return {Need::notHeard};
    const bool isSilent = !beacon.isPresent && isKnown(beacon.id) && !page_.deafSince;
    const auto battery = beacon.latest->shown.battery;
    const bool isLow =
        battery && (*battery <= kLowBattery || (beacon.empty && *beacon.empty < page_.now() + kSoonEmpty));
    const auto isInfo = [&](const RaisedAlarm& raised) { return beacon.isInfo(raised); };
    if (beacon.emergencySince) needs.push_back(Need::emergency);
    if (!std::ranges::all_of(beacon.raised, isInfo)) needs.push_back(Need::alarm);
    if (isSilent) needs.push_back(Need::silent);
    if (isLow) needs.push_back(Need::battery);
    if (std::ranges::any_of(beacon.raised, isInfo)) needs.push_back(Need::info);
    return needs;
  }

  // Of the beacons that the page shows, and the gateway's own.
  void takeEvents(const PageStory& story) {
    std::set<BeaconId> shown;
    for (const PageBeacon& beacon : page_.beacons) shown.insert(beacon.id);
    for (const PageEvent& one : story.events())
      if (!one.event.beacon || shown.contains(*one.event.beacon)) page_.events.push_back(one);
    // A clock may have been put back.
    std::ranges::reverse(page_.events);
    std::ranges::stable_sort(page_.events, std::greater(),
                             [](const PageEvent& one) { return one.event.heard; });
  }

  static std::chrono::microseconds lengthOf(const HistorySpan& span) { return span.until - span.since; }

  HistoryReader& reader_;
  const Settings& settings_;
  const PageRequest& request_;
  PageModel page_;
};

}  // namespace

std::string PageBeacon::name() const {
  constexpr std::size_t kUuid = 36;
  if (!label.name.empty()) return label.name;
  if (id.kind() != BeaconId::Kind::iBeacon || id.text().size() <= kUuid) return id.text();
  return id.text().substr(kUuid + 1) + " of " + id.text().substr(0, 8);
}

const AlarmRule* PageBeacon::rule(const std::string& name) const {
  const auto found = std::ranges::find(rules, name, &AlarmRule::name);
  return found == rules.end() ? nullptr : &*found;
}

bool PageBeacon::isInfo(const RaisedAlarm& alarm) const {
  const AlarmRule* known = rule(alarm.rule);
  return known != nullptr && known->severity == AlarmSeverity::info;
}

Date PageModel::knownUntil() const {
  return std::min(now(), deafSince.value_or(now()));
}

platform::Result<PageModel> readPageModel(HistoryReader& reader, const Settings& settings,
                                          const PageRequest& request) {
  try {
    return ModelReader(reader, settings, request).read();
  } catch (const Unreadable& unreadable) {
    return unreadable.error;
  }
}

}  // namespace brenloft::web
