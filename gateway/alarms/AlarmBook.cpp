#include "gateway/alarms/AlarmBook.h"

#include <algorithm>
#include <chrono>
#include <tuple>
#include <utility>

#include "gateway/alarms/DewPoint.h"

namespace brenloft {
namespace {

using Phase = RuleState::Phase;

std::optional<int32_t> valueOf(AlarmQuantity quantity, const Reading& reading) {
  const Quantities& shown = reading.shown;
  switch (quantity) {
    case AlarmQuantity::temperature:
      return shown.temperature;
    case AlarmQuantity::humidity:
      return shown.humidity;
    case AlarmQuantity::dewPoint:
      if (!shown.temperature || !shown.humidity) return std::nullopt;
      return dewPoint(*shown.temperature, *shown.humidity);
    case AlarmQuantity::battery:
      return shown.battery;
    case AlarmQuantity::rssi:
      return reading.rssi;
    case AlarmQuantity::emergency:
      return shown.emergency;
    case AlarmQuantity::silence:
      return 0;  // that it was heard is enough
  }
  return std::nullopt;
}

// `beyond`: the last value on the wrong side of it.
std::optional<int32_t> thresholdOf(const AlarmRule& rule, std::optional<int32_t> beyond) {
  if (rule.quantity == AlarmQuantity::emergency) return std::nullopt;
  if (rule.quantity == AlarmQuantity::silence)
    return static_cast<int32_t>(std::chrono::duration_cast<std::chrono::seconds>(rule.hold).count());
  const bool isAbove =
      rule.above && (!rule.below || (beyond && *beyond - *rule.above > *rule.below - *beyond));
  return isAbove ? rule.above : rule.below;
}

}  // namespace

AlarmBook::AlarmBook(std::shared_ptr<platform::DispatchService> dispatch,
                     const platform::dispatch_queue_t& queue, std::shared_ptr<const Settings> settings,
                     Handlers handlers)
    : dispatch_(std::move(dispatch)),
      settings_(std::move(settings)),
      handlers_(std::move(handlers)),
      timer_(dispatch_->createTimer(queue)) {
  timer_->setEventHandler([this] { timeIsUp(); });
  timer_->resume();
  beginSilences();
}

AlarmBook::~AlarmBook() {
  timer_->cancel();
}

void AlarmBook::heard(const Reading& reading) {
  if (reading.verdict != Verdict::plausible) return;
  const BeaconSettings* known = settings_->beacon(reading.beacon);
  auto slots = slots_.find(reading.beacon);
  for (std::size_t i = 0; i < settings_->alarms.size(); ++i) {
    const AlarmRule& rule = settings_->alarms[i];
    const auto value = valueOf(rule.quantity, reading);
    if (!value || !concerns(rule, reading.beacon, known)) continue;
    Slot* slot = slots == slots_.end() ? nullptr : find(slots->second, i);
    if (slot == nullptr) {
      const bool isQuiet = step(rule, {}, value, listened()).state.phase == Phase::quiet;
      if (isQuiet || !hasRoomFor(reading.beacon)) continue;
      slot = &slotOf(reading.beacon, i);
      slots = slots_.find(reading.beacon);
    }
    judge(reading.beacon, *slot, value, reading.heard);
  }
  if (slots != slots_.end()) forgetWhatIsOver(slots);
}

void AlarmBook::radio(bool isListening) {
  if (isListening == !pausedAt_) return;
  if (!isListening) {
    timeIsUp();
    pausedAt_ = dispatch_->now();
  } else {
    paused_ += dispatch_->now() - *std::exchange(pausedAt_, std::nullopt);
  }
  keepPending();
  awaitEarliest();
}

void AlarmBook::notified(const std::string& rule, const BeaconId& beacon) {
  const auto found = std::ranges::find(settings_->alarms, rule, &AlarmRule::name);
  if (found == settings_->alarms.end()) return;
  const auto slots = slots_.find(beacon);
  if (slots == slots_.end()) return;
  Slot* slot = find(slots->second, static_cast<std::size_t>(found - settings_->alarms.begin()));
  if (slot == nullptr || slot->untold.empty()) return;
  slot->untold.erase(0, 1);
  handlers_.onState(stateOf(beacon, *slot));
  forgetWhatIsOver(slots);
}

std::vector<AlarmBook::Raised> AlarmBook::raised(const BeaconId& beacon) const {
  std::vector<Raised> result;
  const auto found = slots_.find(beacon);
  if (found == slots_.end()) return result;
  for (const Slot& slot : found->second)
    if (slot.state.phase == Phase::raised) result.push_back({&ruleOf(slot), slot.raisedOn});
  return result;
}

ListenedTime AlarmBook::listened() const {
  return pausedAt_.value_or(dispatch_->now()) - paused_;
}

bool AlarmBook::concerns(const AlarmRule& rule, const BeaconId& beacon, const BeaconSettings* known) {
  if (known != nullptr && known->ignore) return false;
  if (rule.beacon) return *rule.beacon == beacon;
  if (!rule.place.empty()) return known != nullptr && known->place == rule.place;
  return rule.quantity != AlarmQuantity::silence || known != nullptr;
}

bool AlarmBook::hasRoomFor(const BeaconId& beacon) const {
  return slots_.size() < kCapacity || slots_.contains(beacon) || settings_->beacon(beacon) != nullptr;
}

bool AlarmBook::isOver(const Slot& slot) const {
  return slot.untold.empty() && isForgettable(slot.state);
}

AlarmBook::Slot* AlarmBook::find(Slots& slots, std::size_t rule) {
  const auto slot = std::ranges::find(slots, rule, &Slot::rule);
  return slot == slots.end() ? nullptr : &*slot;
}

AlarmBook::Slot& AlarmBook::slotOf(const BeaconId& beacon, std::size_t rule) {
  Slots& slots = slots_[beacon];
  if (Slot* slot = find(slots, rule)) return *slot;
  return *slots.insert(std::ranges::upper_bound(slots, rule, {}, &Slot::rule), Slot{.rule = rule});
}

void AlarmBook::forgetWhatIsOver(SlotsByBeacon::iterator slots) {
  std::erase_if(slots->second, [this](const Slot& slot) { return isOver(slot); });
  if (slots->second.empty()) slots_.erase(slots);
}

// A beacon that is never heard at all is silent, too.
void AlarmBook::beginSilences() {
  for (std::size_t i = 0; i < settings_->alarms.size(); ++i) {
    const AlarmRule& rule = settings_->alarms[i];
    if (rule.quantity != AlarmQuantity::silence) continue;
    std::vector<BeaconId> beacons;
    if (rule.beacon) beacons.push_back(*rule.beacon);
    for (const auto& [beacon, known] : settings_->beacons) beacons.push_back(beacon);
    for (const BeaconId& beacon : beacons) {
      if (!concerns(rule, beacon, settings_->beacon(beacon))) continue;
      Slot& slot = slotOf(beacon, i);
      if (slot.state.phase != Phase::quiet) continue;
      slot.state.phase = Phase::pending;
      slot.state.since = listened();
    }
  }
  awaitEarliest();
}

// In two steps, each with one event at most, so that each event is kept with the state that it made.
void AlarmBook::judge(const BeaconId& beacon, Slot& slot, std::optional<int32_t> value, platform::Date now) {
  const auto due = nextDeadline(ruleOf(slot), slot.state);
  if (due && *due <= listened()) apply(beacon, slot, std::nullopt, now);
  if (value) apply(beacon, slot, value, now);
}

void AlarmBook::apply(const BeaconId& beacon, Slot& slot, std::optional<int32_t> value, platform::Date now) {
  const AlarmRule& rule = ruleOf(slot);
  RuleStep result = step(rule, slot.state, value, listened());
  const bool isChanged =
      result.state.phase != slot.state.phase || result.state.raisedAt != slot.state.raisedAt;
  const RuleState before = std::exchange(slot.state, result.state);
  if (isChanged) slot.since = now;
  for (const RuleEvent& event : result.events) {
    const auto late = std::chrono::duration_cast<std::chrono::microseconds>(listened() - event.at);
    report(beacon, slot, event, event.isRaised ? event.value : before.value, now - late);
  }
  if (isChanged && result.events.empty()) handlers_.onState(stateOf(beacon, slot));
  if (const auto due = nextDeadline(rule, slot.state)) awaitUntil(*due);
}

void AlarmBook::report(const BeaconId& beacon, Slot& slot, const RuleEvent& event,
                       std::optional<int32_t> beyond, platform::Date at) {
  const AlarmRule& rule = ruleOf(slot);
  slot.since = at;
  if (event.isRaised) slot.raisedOn = at;
  if (!rule.exec.empty()) slot.untold += event.isRaised ? 'r' : 'c';
  const auto kind = event.isRaised ? BeaconEvent::Kind::alarmRaised : BeaconEvent::Kind::alarmCleared;
  const AlarmFacts facts{rule.severity, rule.quantity, event.value, thresholdOf(rule, beyond), rule.text};
  handlers_.onEvent({.beacon = beacon, .heard = at, .kind = kind, .text = rule.name, .alarm = facts},
                    stateOf(beacon, slot));
  if (!rule.exec.empty()) handlers_.onNotice({rule, beacon, event.isRaised, at, event.value});
}

void AlarmBook::awaitUntil(ListenedTime due) {
  if (pausedAt_ || (awaited_ && *awaited_ <= due)) return;
  awaited_ = due;
  timer_->setTimer(due + paused_, platform::DISPATCH_TIME_FOREVER, {});
}

void AlarmBook::awaitEarliest() {
  awaited_.reset();
  timer_->setTimer(platform::DISPATCH_TIME_FOREVER, platform::DISPATCH_TIME_FOREVER, {});
  for (const auto& [beacon, slots] : slots_)
    for (const Slot& slot : slots)
      if (const auto due = nextDeadline(ruleOf(slot), slot.state)) awaitUntil(*due);
}

void AlarmBook::timeIsUp() {
  const ListenedTime now = listened();
  std::vector<std::tuple<ListenedTime, std::size_t, BeaconId>> due;
  for (const auto& [beacon, slots] : slots_) {
    for (const Slot& slot : slots) {
      const auto deadline = nextDeadline(ruleOf(slot), slot.state);
      if (deadline && *deadline <= now) due.emplace_back(*deadline, slot.rule, beacon);
    }
  }
  std::ranges::sort(due);
  for (const auto& [deadline, rule, beacon] : due) {
    judge(beacon, slotOf(beacon, rule), std::nullopt, dispatch_->date());
    forgetWhatIsOver(slots_.find(beacon));
  }
  awaitEarliest();
}

}  // namespace brenloft
