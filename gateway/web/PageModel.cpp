#include "gateway/web/PageModel.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "gateway/alarms/AlarmBook.h"
#include "gateway/web/LocalTime.h"
#include "gateway/web/PageStory.h"

namespace brenloft::web {
namespace {

using namespace std::chrono_literals;
using platform::Date;
using Seconds = std::chrono::seconds;

constexpr std::size_t kMostBeacons = 500;
constexpr std::size_t kRowsPerPage = 1000;
constexpr int64_t kMostDays = 31;
constexpr Seconds kDayPiece = 15min;  // every zone's days begin at one
constexpr int32_t kLowBattery = 10;   // percent
constexpr auto kSoonEmpty = std::chrono::days(30);

// All charts of a page have about so many pieces, and one chart no more than a screen has columns.
constexpr std::size_t kPieces = 40'000;
constexpr std::size_t kMostPieces = 720;
constexpr std::size_t kLeastPieces = 96;
constexpr std::size_t kRecentPieces = 48;

// Whole parts of a day: others beat with the day and draw waves that are not there.
constexpr std::array<Seconds, 23> kWidths{1s,   2s,   5s,    10s,   15s,   30s,   1min, 2min,
                                          3min, 5min, 10min, 15min, 20min, 30min, 1h,   2h,
                                          3h,   4h,   6h,    8h,    12h,   24h,   48h};

Seconds widthFor(std::chrono::microseconds span, std::size_t pieces) {
  const auto most = static_cast<int64_t>(pieces);
  for (const Seconds width : kWidths)
    if (width * most >= span) return width;
  return std::chrono::days(7) * (span / (std::chrono::days(7) * most) + 1);
}

struct Unreadable {
  platform::Error error;
};
template <typename Value>
Value require(platform::Result<Value> result) {
  if (!result) throw Unreadable{result.error()};
  return *std::move(result);
}

bool isAnyIn(const std::vector<HistorySpan>& spans, Date since, Date until) {
  return std::ranges::any_of(spans,
                             [&](const HistorySpan& one) { return one.since < until && since < one.until; });
}

// Where a beacon was not present, or nothing listened.
std::vector<HistorySpan> silencesOf(const PageBeacon& beacon, const PageModel& page) {
  std::vector<HistorySpan> silences = page.outages;
  Date since = page.span.since;
  for (const HistorySpan& present : beacon.presence) {
    if (since < present.since) silences.push_back({since, present.since});
    since = std::max(since, present.until);
  }
  if (since < page.span.until) silences.push_back({since, page.span.until});
  return silences;
}

PageCurve curveOf(std::vector<HistoryPoint> points, Seconds width, const std::vector<HistorySpan>& silences) {
  PageCurve curve{std::move(points)};
  for (std::size_t i = 1; i < curve.points.size(); ++i) {
    const Date end = curve.points[i - 1].start + width;
    if (end < curve.points[i].start && isAnyIn(silences, end, curve.points[i].start))
      curve.breaks.push_back(i);
  }
  return curve;
}

class ModelReader {
 public:
  ModelReader(HistoryReader& reader, const Settings& settings, const PageRequest& request)
      : reader_(reader), settings_(settings), request_(request), story_(request.span) {
    page_.span = request.span;
    page_.recent = {std::max(page_.span.since, page_.now() - std::chrono::days(1)), page_.now()};
    page_.recentWidth = widthFor(lengthOf(page_.recent), kRecentPieces);
  }

  PageModel read() {
    const HistorySpan extent = require(reader_.extent());
    if (extent.since < extent.until) page_.extent = extent;
    const auto heard = heardBeacons();
    readStory();
    Date heardLast = extent.since;
    for (const auto& [id, latest] : heard)
      if (latest) heardLast = std::max(heardLast, latest->heard);
    if (!story_.events().empty()) heardLast = std::max(heardLast, story_.events().back().event.heard);
    if (page_.extent) story_.finish(heardLast);
    page_.outages = story_.outages();
    page_.earlierEvents = story_.earlierEvents();
    choose(heard);
    for (PageBeacon& beacon : page_.beacons) complete(beacon);
    takeEvents();
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

  // Each beacon's newest reading before the end.
  Heard heardBeacons() {
    Heard heard;
    for (const HistoryBeacon& one : require(reader_.latest())) {
      if (!isAsked(one.beacon)) continue;
      auto& latest = heard[one.beacon];
      if (one.latest) latest = std::get<Reading>(one.latest->record);
      if (latest && latest->heard >= page_.now()) latest = latestBefore(one.beacon);
    }
    return heard;
  }

  std::optional<Reading> latestBefore(const BeaconId& id) {
    const auto pieces =
        require(reader_.pieces(id, Quantity::rssi, page_.span, widthFor(lengthOf(page_.span), 500)));
    if (pieces.empty()) return std::nullopt;
    const HistoryFilter filter{
        .beacons = {id}, .span = {pieces.back().start, page_.span.until}, .hasEvents = false};
    std::optional<Reading> latest;
    eachRow(filter, [&](const HistoryRow& row) { latest = std::get<Reading>(row.record); });
    return latest;
  }

  template <typename Take>
  void eachRow(const HistoryFilter& filter, const Take& take) {
    int64_t after = 0;
    for (bool isLast = false; !isLast;) {
      const auto page = require(reader_.rows(after, filter, kRowsPerPage));
      for (const HistoryRow& row : page.rows) take(row);
      isLast = page.isLast || page.through <= after;
      after = page.through;
    }
  }

  void readStory() {
    eachRow({.span = {.until = page_.now()}, .hasReadings = false}, [&](const HistoryRow& row) {
      const auto& event = std::get<BeaconEvent>(row.record);
      std::optional<Date> silentFrom;
      if (story_.isStart(event) && row.seq > 1) {
        const auto before = require(reader_.rows(row.seq - 2, {}, 1));
        if (!before.rows.empty() && before.rows.front().seq < row.seq)
          silentFrom = heardAt(before.rows.front().record);
      }
      story_.take(event, silentFrom);
    });
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
      chosen.erase(chosen.begin() + kMostBeacons, chosen.end());
    }
    std::ranges::sort(chosen, {}, [](const PageBeacon& one) {
      return std::tuple(one.label.place.empty(), one.label.place, one.name(), one.id);
    });
    page_.beacons = std::move(chosen);
  }

  void complete(PageBeacon& beacon) {
    for (const AlarmRule& rule : settings_.alarms)
      if (AlarmBook::concerns(rule, beacon.id, settings_.beacon(beacon.id))) beacon.rules.push_back(rule);
    takeStory(beacon);
    if (beacon.latest) {
      readBattery(beacon);
      readCurves(beacon);
    }
    beacon.needs = needsOf(beacon);
  }

  void takeStory(PageBeacon& beacon) const {
    const BeaconStory* story = story_.find(beacon.id);
    // What is heard after its loss: the clock was put back.
    beacon.isPresent = beacon.latest && (story == nullptr || story->isPresent.value_or(true) ||
                                         (story->lostAt && *story->lostAt < beacon.latest->heard));
    if (story != nullptr) {
      beacon.emergencySince = story->emergencySince;
      for (const auto& [rule, since] : story->raised) beacon.raised.push_back({rule, since});
      beacon.marks = story->marks;
      beacon.presence = story->presence;
    }
    if (beacon.isPresent && (story == nullptr || !story->isPresent)) beacon.presence = {page_.span};
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
    const auto silences = silencesOf(beacon, page_);
    beacon.recent =
        curveOf(require(reader_.pieces(beacon.id, Quantity::temperature, page_.recent, page_.recentWidth)),
                page_.recentWidth, silences);
    readDays(beacon);
    const std::size_t pieces = std::clamp(kPieces / page_.beacons.size(), kLeastPieces, kMostPieces);
    addLayer(beacon, page_.span, pieces, silences);
    // The newest in more detail, where people look closer; in tenths of the pieces.
    for (const auto& [days, part] : {std::pair(30, 5), std::pair(7, 5), std::pair(1, 4)})
      if (const std::chrono::days span(days); lengthOf(page_.span) >= 2 * span)
        addLayer(beacon, {page_.now() - span, page_.now()}, pieces * static_cast<std::size_t>(part) / 10,
                 silences);
  }

  void addLayer(PageBeacon& beacon, HistorySpan span, std::size_t pieces,
                const std::vector<HistorySpan>& silences) {
    PageLayer layer{span, widthFor(lengthOf(span), pieces)};
    for (std::size_t i = 0; i < layer.curves.size(); ++i)
      layer.curves[i] = curveOf(require(reader_.pieces(beacon.id, kPageQuantities[i], span, layer.width)),
                                layer.width, silences);
    beacon.layers.push_back(std::move(layer));
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
    const bool isSilent = !beacon.isPresent && isKnown(beacon.id) && page_.outageNow() == nullptr;
    const auto battery = beacon.latest->shown.battery;
    const bool isLow =
        battery && (*battery <= kLowBattery || (beacon.empty && *beacon.empty < page_.now() + kSoonEmpty));
    if (beacon.emergencySince) needs.push_back(Need::emergency);
    if (!beacon.raised.empty()) needs.push_back(Need::alarm);
    if (isSilent) needs.push_back(Need::silent);
    if (isLow) needs.push_back(Need::battery);
    return needs;
  }

  // Of the beacons that the page shows, and the gateway's own.
  void takeEvents() {
    std::set<BeaconId> shown;
    for (const PageBeacon& beacon : page_.beacons) shown.insert(beacon.id);
    for (const PageEvent& one : story_.events())
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
  PageStory story_;
  PageModel page_;
};

}  // namespace

std::string PageBeacon::name() const {
  constexpr std::size_t kUuid = 36;
  if (!label.name.empty()) return label.name;
  if (id.kind() != BeaconId::Kind::iBeacon || id.text().size() <= kUuid) return id.text();
  return id.text().substr(kUuid + 1) + " of " + id.text().substr(0, 8);
}

const HistorySpan* PageModel::outageNow() const {
  return !outages.empty() && outages.back().until == span.until ? &outages.back() : nullptr;
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
