#include <algorithm>
#include <charconv>
#include <chrono>
#include <string_view>
#include <utility>

#include "gateway/alarms/AlarmBook.h"

namespace brenloft {
namespace {

using Phase = RuleState::Phase;

// The owner of a state is this and the rule's name; other rooms keep states of their own.
constexpr std::string_view kAlarmOwner = "alarm:";

// The text of a state: phase, the date, how long the phase had lasted by then, when it was raised last, the
// value, who is to be told yet. "-" stands for nothing; times are microseconds.
struct KeptAlarm {
  char phase = 'q';  // of "qpr"; s: pending while the radio is down, so that it stands still
  int64_t date = 0;
  int64_t lasted = 0;
  std::optional<int64_t> raisedOn{};
  std::optional<int64_t> value{};
  std::string untold{};

  std::string text() const {
    const auto word = [](std::optional<int64_t> number) { return number ? std::to_string(*number) : "-"; };
    return std::string(1, phase) + ' ' + word(date) + ' ' + word(lasted) + ' ' + word(raisedOn) + ' ' +
           word(value) + ' ' + (untold.empty() ? "-" : untold);
  }

  static std::optional<KeptAlarm> fromText(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
      const std::size_t end = std::min(text.find(' '), text.size());
      words.push_back(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    const bool isWhole = words.size() == 6 && words[0].size() == 1 && numberFrom(words[1]) &&
                         numberFrom(words[2]) &&
                         std::string_view("qprs").find(words[0][0]) != std::string_view::npos &&
                         (words[5] == "-" || words[5].find_first_not_of("rc") == std::string_view::npos);
    if (!isWhole) return std::nullopt;
    return KeptAlarm{words[0][0],           *numberFrom(words[1]),
                     *numberFrom(words[2]), numberFrom(words[3]),
                     numberFrom(words[4]),  words[5] == "-" ? std::string() : std::string(words[5])};
  }

 private:
  static std::optional<int64_t> numberFrom(std::string_view word) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    const bool isNumber = error == std::errc() && end == word.data() + word.size();
    return isNumber ? std::optional(number) : std::nullopt;
  }
};

int64_t microsOf(platform::Date date) {
  return date.time_since_epoch().count();
}
platform::Date dateOf(int64_t micros) {
  return platform::Date(std::chrono::microseconds(micros));
}

constexpr std::chrono::microseconds kMost = std::chrono::hours(24 * 36'500);  // what the clock can add

// By the clock of the machine, which may have been set meanwhile.
ListenedTime between(platform::Date from, std::optional<platform::Date> to) {
  if (!to || *to <= from || from < platform::Date()) return {};
  return std::min<std::chrono::microseconds>(*to - from, kMost);
}

bool haveOneLimit(const AlarmRule& a, const AlarmRule& b) {
  return a.quantity == b.quantity && a.above == b.above && a.below == b.below;
}

}  // namespace

KeptState AlarmBook::stateOf(const BeaconId& beacon, const Slot& slot) const {
  KeptState state{std::string(kAlarmOwner) + ruleOf(slot).name, beacon.text()};
  const RuleState& now = slot.state;
  if (slot.untold.empty() && isForgettable(now)) return state;
  KeptAlarm alarm{.phase = "qpr"[static_cast<std::size_t>(now.phase)],
                  .date = microsOf(slot.since),
                  .untold = slot.untold};
  if (now.phase == Phase::pending) {
    if (pausedAt_) alarm.phase = 's';
    alarm.date = microsOf(dispatch_->date());
    alarm.lasted = std::chrono::duration_cast<std::chrono::microseconds>(listened() - now.since).count();
  }
  if (now.raisedAt) alarm.raisedOn = microsOf(slot.raisedOn);
  if (now.value) alarm.value = *now.value;
  state.text = alarm.text();
  return state;
}

std::optional<std::string> AlarmBook::raisedIn(const KeptState& state) {
  if (!state.owner.starts_with(kAlarmOwner) || !state.text || !state.text->starts_with('r'))
    return std::nullopt;
  return state.owner.substr(kAlarmOwner.size());
}

void AlarmBook::restore(const AlarmsKept& kept) {
  for (const KeptState& state : kept.states) {
    const auto beacon = BeaconId::fromText(state.subject);
    if (!beacon || !state.text || !state.owner.starts_with(kAlarmOwner)) continue;
    const auto rule =
        std::ranges::find(settings_->alarms, state.owner.substr(kAlarmOwner.size()), &AlarmRule::name);
    if (rule == settings_->alarms.end() || !concerns(*rule, *beacon, settings_->beacon(*beacon)))
      clearWithoutRule(state, *beacon);
    else
      restoreSlot(*beacon, static_cast<std::size_t>(rule - settings_->alarms.begin()), state, kept);
  }
  keepPending();
  awaitEarliest();
}

void AlarmBook::restoreSlot(const BeaconId& beacon, std::size_t rule, const KeptState& state,
                            const AlarmsKept& kept) {
  const auto alarm = KeptAlarm::fromText(*state.text);
  if (!alarm) return handlers_.onState({state.owner, state.subject});
  Slot& slot = slotOf(beacon, rule);
  slot.since = dateOf(alarm->date);
  slot.state.phase =
      alarm->phase == 's' ? Phase::pending : static_cast<Phase>(std::string_view("qpr").find(alarm->phase));
  if (slot.state.phase == Phase::pending) {
    const bool stoodStill = alarm->phase == 's';
    ListenedTime lasted = std::chrono::microseconds(std::clamp<int64_t>(alarm->lasted, 0, kMost.count()));
    if (!stoodStill) lasted += between(slot.since, kept.stoppedAt);
    // Readings begin a silence anew without a word to whoever keeps its state.
    const auto heard = kept.heard.find(beacon);
    if (ruleOf(slot).quantity == AlarmQuantity::silence && heard != kept.heard.end() &&
        heard->second > slot.since)
      lasted = between(heard->second, kept.stoppedAt);
    slot.state.since = listened() - std::min<ListenedTime>(lasted, ruleOf(slot).hold);
  }
  if (alarm->value) slot.state.value = static_cast<int32_t>(*alarm->value);
  if (alarm->raisedOn) {
    slot.raisedOn = dateOf(*alarm->raisedOn);
    const ListenedTime rested = between(slot.raisedOn, kept.stoppedAt);
    slot.state.raisedAt = listened() - std::min<ListenedTime>(rested, ruleOf(slot).cooldown);
  }
  if (ruleOf(slot).exec.empty()) return;
  slot.untold = alarm->untold;
  for (const char one : slot.untold)
    handlers_.onNotice(
        {ruleOf(slot), beacon, one == 'r', one == 'r' ? slot.raisedOn : slot.since, slot.state.value});
}

// How long it has lasted so far is all that is known after the next start.
void AlarmBook::keepPending() {
  for (const auto& [beacon, slots] : slots_)
    for (const Slot& slot : slots)
      if (slot.state.phase == Phase::pending) handlers_.onState(stateOf(beacon, slot));
}

// Nobody would ever clear it: its rule is gone, or is no longer for this beacon.
void AlarmBook::clearWithoutRule(const KeptState& state, const BeaconId& beacon) {
  const KeptState none{state.owner, state.subject};
  if (!state.text->starts_with('r')) return handlers_.onState(none);
  handlers_.onEvent({.beacon = beacon,
                     .heard = dispatch_->date(),
                     .kind = BeaconEvent::Kind::alarmCleared,
                     .text = state.owner.substr(kAlarmOwner.size())},
                    none);
}

void AlarmBook::setSettings(std::shared_ptr<const Settings> settings) {
  timeIsUp();
  const auto before = std::exchange(settings_, std::move(settings));
  std::vector<BeaconId> beacons;
  for (const auto& [beacon, slots] : slots_) beacons.push_back(beacon);
  std::ranges::sort(beacons);
  const auto slots = std::exchange(slots_, {});
  for (const BeaconId& beacon : beacons) {
    Slots kept = adopted(beacon, slots.at(beacon), *before);
    if (!kept.empty()) slots_.emplace(beacon, std::move(kept));
  }
  beginSilences();
}

AlarmBook::Slots AlarmBook::adopted(const BeaconId& beacon, const Slots& slots, const Settings& before) {
  Slots kept;
  for (Slot slot : slots) {
    const AlarmRule& old = before.alarms[slot.rule];
    const auto rule = std::ranges::find(settings_->alarms, old.name, &AlarmRule::name);
    if (rule == settings_->alarms.end() || !concerns(*rule, beacon, settings_->beacon(beacon))) {
      const bool isRaised = slot.state.phase == Phase::raised;
      clearWithoutRule({std::string(kAlarmOwner) + old.name, beacon.text(), isRaised ? "r" : ""}, beacon);
      if (isRaised && !old.exec.empty()) handlers_.onNotice({old, beacon, false, dispatch_->date()});
      continue;
    }
    slot.rule = static_cast<std::size_t>(rule - settings_->alarms.begin());
    // What was beyond another limit says nothing of this one.
    if (slot.state.phase == Phase::pending && !haveOneLimit(old, *rule)) {
      slot.state.phase = Phase::quiet;
      handlers_.onState(stateOf(beacon, slot));
    }
    if (!isOver(slot)) kept.push_back(std::move(slot));
  }
  std::ranges::sort(kept, {}, &Slot::rule);
  return kept;
}

}  // namespace brenloft
