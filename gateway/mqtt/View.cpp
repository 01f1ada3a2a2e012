#include "gateway/mqtt/View.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "gateway/alarms/AlarmBook.h"
#include "gateway/beacons/BeaconBook.h"

namespace brenloft {
namespace {

using std::chrono::seconds;

// Of beacons that were never named: who was not heard for so long is not told to a new broker, and what is
// told of them goes by itself.
constexpr std::chrono::hours kRecently{1};
constexpr std::chrono::hours kStrangersPresence{24};

// In steps, so that a gap that is a little longer changes nothing elsewhere.
constexpr std::array kFreshness{seconds(60),     seconds(120),    seconds(300),    seconds(600),
                                seconds(900),    seconds(1'800),  seconds(3'600),  seconds(7'200),
                                seconds(10'800), seconds(21'600), seconds(43'200), seconds(86'400)};

uint8_t bitOf(View::Kind kind) {
  return static_cast<uint8_t>(kind);
}

GapLearner::Time timeOf(platform::Date date) {
  return std::chrono::duration_cast<GapLearner::Time>(date.time_since_epoch());
}

}  // namespace

View::View(Payloads& payloads, std::shared_ptr<const Settings> settings, bool hasExpiry)
    : payloads_(payloads), settings_(std::move(settings)), hasExpiry_(hasExpiry) {}

void View::setSettings(std::shared_ptr<const Settings> settings) {
  settings_ = std::move(settings);
}

void View::restore(const std::vector<KeptState>& states, const std::vector<HistoryBeacon>& beacons,
                   platform::Date now) {
  for (const HistoryBeacon& one : beacons) {
    const bool isRecent = one.latest && now - heardAt(one.latest->record) < kRecently;
    if (isRecent || isKnown(one.beacon))
      if (one.latest) take(*one.latest);
  }
  for (const KeptState& state : states) {
    const auto beacon = BeaconId::fromText(state.subject);
    const auto found = beacon ? entries_.find(*beacon) : entries_.end();
    if (found == entries_.end()) continue;
    Entry& entry = found->second;
    if (state.owner == BeaconBook::kOwner) {
      entry.isHome = BeaconBook::isPresentIn(state);
      if (const auto gap = BeaconBook::usualGapIn(state)) entry.gaps = GapLearner(gap);
      change(*beacon, Kind::presence);
    } else if (const auto alarm = AlarmBook::raisedIn(state)) {
      entry.raised.insert(*alarm);
      change(*beacon, Kind::alarms);
    }
  }
}

View::Entry* View::entryOf(const BeaconId& beacon) {
  const auto found = entries_.find(beacon);
  if (found != entries_.end()) return &found->second;
  if (entries_.size() >= kCapacity && !isKnown(beacon)) return nullptr;
  const BeaconSettings* settings = settings_->beacon(beacon);
  std::optional<GapLearner::Time> expected;
  if (settings != nullptr && settings->expectedInterval)
    expected = std::chrono::duration_cast<GapLearner::Time>(*settings->expectedInterval);
  return &entries_.emplace(beacon, Entry{.gaps = GapLearner(expected)}).first->second;
}

void View::take(const HistoryRow& row) {
  if (const auto* reading = std::get_if<Reading>(&row.record))
    takeReading(*reading, row.seq);
  else
    takeEvent(std::get<BeaconEvent>(row.record));
}

void View::takeReading(const Reading& reading, int64_t seq) {
  if (entries_.size() >= kCapacity) forgetStrangers(reading.heard);
  Entry* entry = entryOf(reading.beacon);
  if (entry == nullptr) return;
  if (!entry->reading || entry->reading->heard <= reading.heard) entry->gaps.heard(timeOf(reading.heard));
  entry->reading = reading;
  entry->seq = seq;
  change(reading.beacon, Kind::state);
  const bool isForgottenSoon = reading.heard - entry->presenceTold > kStrangersPresence / 2;
  if (entry->isHome && isForgottenSoon && !isKnown(reading.beacon)) change(reading.beacon, Kind::presence);
}

void View::takeEvent(const BeaconEvent& event) {
  using EventKind = BeaconEvent::Kind;
  if (event.kind == EventKind::radio) radio_ = event.text;
  Entry* entry = event.beacon ? entryOf(*event.beacon) : nullptr;
  if (entry == nullptr) return;
  if (event.kind == EventKind::found || event.kind == EventKind::lost) {
    entry->isHome = event.kind == EventKind::found;
    change(*event.beacon, Kind::presence);
  } else if (event.kind == EventKind::alarmRaised || event.kind == EventKind::alarmCleared) {
    if (event.kind == EventKind::alarmRaised)
      entry->raised.insert(event.text);
    else
      entry->raised.erase(event.text);
    change(*event.beacon, Kind::alarms);
  }
}

void View::forgetStrangers(platform::Date now) {
  std::erase_if(entries_, [&](const auto& one) {
    const auto& [beacon, entry] = one;
    return !isKnown(beacon) && entry.raised.empty() && entry.reading &&
           now - entry.reading->heard > kRecently;
  });
}

void View::change(const BeaconId& beacon, Kind kind) {
  const auto found = entries_.find(beacon);
  if (found == entries_.end()) return;
  if (found->second.changed == 0) changed_.push_back(beacon);
  found->second.changed |= bitOf(kind);
  if (kind == Kind::alarms) found->second.hasAlarms = true;
}

void View::renew() {
  for (auto& [beacon, entry] : entries_) {
    if (entry.reading) change(beacon, Kind::state);
    if (entry.isHome) change(beacon, Kind::presence);
    if (entry.hasAlarms) change(beacon, Kind::alarms);
  }
}

std::optional<View::Item> View::next(platform::Date now) {
  while (!changed_.empty()) {
    const BeaconId beacon = changed_.front();
    const auto found = entries_.find(beacon);
    const uint8_t changed = found == entries_.end() ? uint8_t{0} : found->second.changed;
    // What has one kind left goes now; without any it was forgotten meanwhile.
    if (std::popcount(changed) <= 1) changed_.pop_front();
    if (changed == 0) continue;
    const Key key{beacon, static_cast<Kind>(changed & -changed)};
    found->second.changed &= static_cast<uint8_t>(changed - 1);
    if (auto message = messageOf(key, found->second, now)) return Item{key, *std::move(message)};
  }
  return std::nullopt;
}

std::optional<Message> View::messageOf(const Key& key, Entry& entry, platform::Date now) {
  if (key.kind == Kind::alarms) return payloads_.alarms(key.beacon, entry.raised);
  if (key.kind == Kind::presence) {
    entry.presenceTold = now;
    Message message = payloads_.presence(key.beacon, *entry.isHome);
    if (!isKnown(key.beacon)) message.expiry = kStrangersPresence;
    return message;
  }
  // A clock that was put back makes nothing fresher than new.
  const auto age = std::max(now - entry.reading->heard, platform::Date::duration(0));
  const auto left = std::chrono::floor<seconds>(freshness(key.beacon) - age);
  if (left < seconds(1)) return std::nullopt;
  Message message = payloads_.state(*entry.reading, entry.seq, left);
  message.isRetained = hasExpiry_;
  return message;
}

seconds View::freshness(const BeaconId& beacon) const {
  const auto found = entries_.find(beacon);
  if (found == entries_.end()) return kFreshness.front();
  const GapLearner& gaps = found->second.gaps;
  const auto wanted = std::max(gaps.usualGap().value_or(GapLearner::Time(0)) * 3, gaps.limit());
  const auto step = std::ranges::find_if(kFreshness, [&](seconds one) { return one >= wanted; });
  return step == kFreshness.end() ? kFreshness.back() : *step;
}

std::vector<BeaconId> View::beacons() const {
  std::vector<BeaconId> beacons;
  for (const auto& [beacon, entry] : entries_) beacons.push_back(beacon);
  std::ranges::sort(beacons);
  return beacons;
}

}  // namespace brenloft
