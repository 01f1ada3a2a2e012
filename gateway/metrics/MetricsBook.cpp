#include "gateway/metrics/MetricsBook.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "gateway/alarms/AlarmBook.h"

namespace brenloft {
namespace {

constexpr std::chrono::microseconds kLeastFresh = std::chrono::minutes(1);
constexpr std::chrono::hours kStrangersPlace{24};
constexpr std::string_view kRadioListens = "poweredOn";

// By the settings, else by what was learned.
std::chrono::microseconds longestSilence(const GapLearner& gaps, const BeaconSettings* known) {
  if (known != nullptr && known->exitTime && known->exitTime->given) return *known->exitTime->given;
  return gaps.limit();
}

bool isFresh(const Reading& reading, const GapLearner& gaps, const BeaconSettings* known,
             platform::Date now) {
  const std::chrono::microseconds usual = gaps.usualGap().value_or(GapLearner::Time(0));
  return now - reading.heard <= std::max({usual * 3, longestSilence(gaps, known), kLeastFresh});
}

}  // namespace

void MetricsBook::restore(const std::vector<KeptState>& states, const std::vector<HistoryBeacon>& beacons,
                          const std::optional<std::string>& radioState) {
  isListening_ = !radioState || radioState->starts_with(kRadioListens);
  std::set<BeaconId> present;
  std::set<BeaconId> raised;
  for (const KeptState& state : states) {
    const auto beacon = BeaconId::fromText(state.subject);
    if (beacon && state.owner == BeaconBook::kOwner && BeaconBook::isPresentIn(state))
      present.insert(*beacon);
    if (beacon && AlarmBook::raisedIn(state)) raised.insert(*beacon);
  }
  const auto settings = settings_();
  for (const HistoryBeacon& one : beacons) {
    const bool isPresent = present.contains(one.beacon);
    const bool isTold = isPresent || raised.contains(one.beacon) || settings->beacon(one.beacon) != nullptr;
    if (!one.latest || !isTold) continue;
    const auto& reading = std::get<Reading>(one.latest->record);
    Entry* entry = entryOf(one.beacon, reading.heard);
    if (entry == nullptr) continue;
    take(reading, *entry);
    entry->isPresent = isPresent;
    entry->isCarried = true;
  }
  for (const KeptState& state : states) {
    const auto beacon = BeaconId::fromText(state.subject);
    if (!beacon) continue;
    // An alarm of its silence is raised also where it was never heard.
    Entry* entry = settings->beacon(*beacon) != nullptr ? entryOf(*beacon, {}) : find(*beacon);
    if (entry == nullptr) continue;
    if (state.owner == BeaconBook::kOwner) {
      // Of a history that is thinned, one reading tells less than what was learned from each.
      if (const auto gap = BeaconBook::usualGapIn(state)) entry->gaps = GapLearner(gap);
    } else if (auto alarm = AlarmBook::raisedIn(state)) {
      entry->raised.insert(*std::move(alarm));
    }
  }
}

void MetricsBook::accept(const Record& record) {
  if (const auto* event = std::get_if<BeaconEvent>(&record)) return take(*event);
  const auto& reading = std::get<Reading>(record);
  Entry* entry = entryOf(reading.beacon, reading.heard);
  if (entry == nullptr) {
    ++omittedReadings_;
    return;
  }
  take(reading, *entry);
  ++entry->readings;
}

void MetricsBook::writerEnded() {
  for (auto& [beacon, entry] : entries_) entry.isCarried = true;
}

MetricsBook::Entry* MetricsBook::find(const BeaconId& beacon) {
  const auto found = entries_.find(beacon);
  return found == entries_.end() ? nullptr : &found->second;
}

MetricsBook::Entry* MetricsBook::entryOf(const BeaconId& beacon, platform::Date now) {
  if (Entry* entry = find(beacon)) return entry;
  const auto settings = settings_();
  const BeaconSettings* known = settings->beacon(beacon);
  if (known == nullptr && !makeRoom(*settings, now)) return nullptr;
  std::optional<GapLearner::Time> expected;
  if (known != nullptr && known->expectedInterval)
    expected = std::chrono::duration_cast<GapLearner::Time>(*known->expectedInterval);
  return &entries_.emplace(beacon, Entry(expected)).first->second;
}

bool MetricsBook::makeRoom(const Settings& settings, platform::Date now) {
  const auto isStranger = [&](const auto& one) { return settings.beacon(one.first) == nullptr; };
  if (std::ranges::count_if(entries_, isStranger) < static_cast<std::ptrdiff_t>(kMostStrangers)) return true;
  const auto gone = std::ranges::find_if(entries_, [&](const auto& one) {
    const Entry& entry = one.second;
    return isStranger(one) && entry.raised.empty() &&
           (!entry.reading || now - entry.reading->heard >= kStrangersPlace);
  });
  if (gone == entries_.end()) return false;
  entries_.erase(gone);
  return true;
}

void MetricsBook::take(const Reading& reading, Entry& entry) {
  entry.gaps.heard(std::chrono::duration_cast<GapLearner::Time>(reading.heard.time_since_epoch()));
  entry.reading = reading;
  entry.isCarried = false;
}

void MetricsBook::take(const BeaconEvent& event) {
  using Kind = BeaconEvent::Kind;
  if (event.kind == Kind::radio) {
    isListening_ = event.text.starts_with(kRadioListens);
    if (!isListening_)
      for (auto& [beacon, entry] : entries_) entry.gaps.radioPaused();
  }
  if (!event.beacon) return;
  // Found comes before the first reading, and the alarm of a silence without any; all else behind one.
  const bool mayBeFirst = event.kind == Kind::found || event.kind == Kind::alarmRaised;
  Entry* entry = mayBeFirst ? entryOf(*event.beacon, event.heard) : find(*event.beacon);
  if (entry == nullptr) return;
  if (event.kind == Kind::found || event.kind == Kind::lost) entry->isPresent = event.kind == Kind::found;
  if (event.kind == Kind::alarmRaised) entry->raised.insert(event.text);
  if (event.kind == Kind::alarmCleared) entry->raised.erase(event.text);
}

MetricsSnapshot MetricsBook::snapshot(platform::Date now, std::optional<bool> isWritten) const {
  MetricsSnapshot snapshot{.made = now,
                           .isListening = isListening_ && isWritten.value_or(true),
                           .omittedReadings = omittedReadings_};
  const auto settings = settings_();
  for (const auto& [beacon, known] : settings->beacons)
    if (!known.ignore && !entries_.contains(beacon))
      snapshot.beacons.push_back(metricsOf(beacon, nullptr, *settings, now, isWritten));
  for (const auto& [beacon, entry] : entries_) {
    BeaconMetrics metrics = metricsOf(beacon, &entry, *settings, now, isWritten);
    if (metrics.isPresent.value_or(false) || !entry.raised.empty() || settings->beacon(beacon) != nullptr)
      snapshot.beacons.push_back(std::move(metrics));
  }
  std::ranges::sort(snapshot.beacons, {}, &BeaconMetrics::beacon);
  return snapshot;
}

BeaconMetrics MetricsBook::metricsOf(const BeaconId& beacon, const Entry* entry, const Settings& settings,
                                     platform::Date now, std::optional<bool> isWritten) const {
  BeaconMetrics metrics{.beacon = beacon, .label = settings.labelOf(beacon)};
  for (const AlarmRule& rule : settings.alarms)
    if (AlarmBook::concerns(rule, beacon, settings.beacon(beacon)))
      metrics.alarms.push_back(
          {rule.name, rule.severity, entry != nullptr && entry->raised.contains(rule.name)});
  const bool isPresent = entry != nullptr && entry->isPresent;
  const bool isHeard = entry != nullptr && entry->reading;
  if (isHeard) {
    metrics.readings = entry->readings;
    metrics.heard = entry->reading->heard;
  }
  // Who should have been heard long ago and was never lost: nobody listens any more.
  const bool isTrue = !isPresent || (isWritten.value_or(false) && !entry->isCarried) ||
                      (isHeard && isFresh(*entry->reading, entry->gaps, settings.beacon(beacon), now));
  if (!isListening_ || !isWritten.value_or(true) || !isTrue) return metrics;
  metrics.isPresent = isPresent;
  if (isPresent && isHeard) {
    metrics.shown = entry->reading->shown;
    metrics.rssi = entry->reading->rssi;
  }
  return metrics;
}

}  // namespace brenloft
