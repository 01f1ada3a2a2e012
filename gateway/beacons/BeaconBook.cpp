#include "gateway/beacons/BeaconBook.h"

#include <chrono>
#include <map>
#include <string_view>
#include <utility>

#include "gateway/beacons/Judge.h"

namespace brenloft {
namespace {

using Kind = BeaconEvent::Kind;

GapLearner::Time inMilliseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration_cast<GapLearner::Time>(time);
}

std::optional<GapLearner::Time> expectedBy(const BeaconSettings* settings) {
  if (settings == nullptr || !settings->expectedInterval) return std::nullopt;
  return inMilliseconds(*settings->expectedInterval);
}

Quantities withOffsets(Quantities raw, const BeaconSettings* settings) {
  if (settings == nullptr) return raw;
  if (raw.temperature) *raw.temperature += settings->temperatureOffset;
  if (raw.humidity) *raw.humidity += settings->humidityOffset;
  return raw;
}

// What a state's text says before the gaps.
constexpr char kPresent = 'p';
constexpr char kEmergency = 'e';
constexpr char kGaps = '|';

struct StateText {
  std::string_view flags;
  std::string_view gaps;
};
std::optional<StateText> textIn(const KeptState& state) {
  const std::string_view text = state.text ? std::string_view(*state.text) : "";
  const std::size_t gaps = text.find(kGaps);
  if (state.owner != BeaconBook::kOwner || gaps == std::string_view::npos) return std::nullopt;
  return StateText{text.substr(0, gaps), text.substr(gaps + 1)};
}

}  // namespace

BeaconBook::BeaconBook(std::shared_ptr<platform::DispatchService> dispatch,
                       const platform::dispatch_queue_t& queue, std::shared_ptr<const Settings> settings,
                       BeaconChoice choice, Handlers handlers)
    : dispatch_(std::move(dispatch)),
      settings_(std::move(settings)),
      choice_(std::move(choice)),
      handlers_(std::move(handlers)),
      timer_(dispatch_->createTimer(queue)) {
  timer_->setEventHandler([this] { timeIsUp(); });
  timer_->resume();
}

BeaconBook::~BeaconBook() {
  timer_->cancel();
}

void BeaconBook::restore(const std::vector<KeptState>& states) {
  for (const KeptState& state : states) {
    const auto beacon = BeaconId::fromText(state.subject);
    const auto text = textIn(state);
    if (!beacon || !text) continue;
    Entry& entry = entryOf(*beacon);
    entry.gaps.restore(text->gaps, listened());
    entry.isEmergency = text->flags.find(kEmergency) != std::string_view::npos;
    entry.keptLimit = entry.gaps.limit();
    if (text->flags.find(kPresent) != std::string_view::npos) entry.presence.heard(listened());
  }
  awaitEarliest();
}

void BeaconBook::heard(Reading reading) {
  reading.verdict = verdictOn(reading);
  ++census_.byVerdict[static_cast<std::size_t>(reading.verdict)];
  if (reading.verdict != Verdict::plausible) return handlers_.onRefused(reading);

  Entry& entry = entryOf(reading.beacon);
  reading.shown = withOffsets(reading.raw, entry.settings);
  const Time at = listened();
  entry.gaps.heard(at);
  const bool isNew = entry.presence.heard(at);
  if (isNew) reportEvent(reading.beacon, entry, Kind::found, reading.heard);
  handlers_.onReading(reading);

  const bool isEmergency = reading.raw.emergency.value_or(0) >= 1;
  if (std::exchange(entry.isEmergency, isEmergency) != isEmergency)
    reportEvent(reading.beacon, entry, isEmergency ? Kind::emergency : Kind::emergencyOver, reading.heard);
  const Time limit = entry.gaps.limit();
  if (limit > entry.keptLimit * 5 / 4 || limit < entry.keptLimit * 3 / 4)
    handlers_.onState(stateOf(reading.beacon, entry));
  if (!pausedAt_) awaitUntil(*entry.presence.due(exitTimeOf(entry)));
}

void BeaconBook::radio(bool isListening) {
  if (isListening == !pausedAt_) return;
  if (!isListening) {
    for (auto& [beacon, entry] : entries_) entry.gaps.radioPaused();
    pausedAt_ = dispatch_->now();
  } else {
    paused_ += dispatch_->now() - *std::exchange(pausedAt_, std::nullopt);
    for (auto& [beacon, entry] : entries_) entry.presence.radioReturned(listened());
  }
  awaitEarliest();
}

void BeaconBook::setSettings(std::shared_ptr<const Settings> settings) {
  settings_ = std::move(settings);
  for (auto& [beacon, entry] : entries_) {
    entry.settings = settings_->beacon(beacon);
    const bool wasStranger = entry.place != strangers_.end();
    if (wasStranger && entry.settings != nullptr)
      strangers_.erase(std::exchange(entry.place, strangers_.end()));
    if (!wasStranger && entry.settings == nullptr) entry.place = strangers_.insert(strangers_.end(), &beacon);
  }
  awaitEarliest();
}

std::optional<BeaconBook::Known> BeaconBook::find(const BeaconId& beacon) const {
  const auto found = entries_.find(beacon);
  if (found == entries_.end()) return std::nullopt;
  const Entry& entry = found->second;
  return Known{entry.presence.isPresent(), entry.gaps.usualGap(), exitTimeOf(entry)};
}

std::optional<GapLearner::Time> BeaconBook::usualGapIn(const KeptState& state) {
  const auto text = textIn(state);
  if (!text) return std::nullopt;
  GapLearner gaps;
  gaps.restore(text->gaps, Time(0));
  return gaps.usualGap();
}

bool BeaconBook::isPresentIn(const KeptState& state) {
  const auto text = textIn(state);
  return text && text->flags.find(kPresent) != std::string_view::npos;
}

BeaconBook::Time BeaconBook::listened() const {
  return inMilliseconds(pausedAt_.value_or(dispatch_->now()) - paused_);
}

Verdict BeaconBook::verdictOn(const Reading& reading) const {
  const BeaconSettings* settings = settings_->beacon(reading.beacon);
  if (settings != nullptr && settings->ignore) return Verdict::ignored;
  const bool isAnyWanted = !choice_.isKnown && choice_.only.empty();
  const bool isWanted = isAnyWanted || (choice_.isKnown && settings != nullptr) ||
                        choice_.only.find(reading.beacon) != choice_.only.end();
  if (!isWanted) return Verdict::unknown;
  return choice_.isPlausible ? judge(reading) : Verdict::plausible;
}

BeaconBook::Entry& BeaconBook::entryOf(const BeaconId& beacon) {
  if (const auto found = entries_.find(beacon); found != entries_.end()) {
    Entry& entry = found->second;
    if (entry.place != strangers_.end()) strangers_.splice(strangers_.end(), strangers_, entry.place);
    return entry;
  }
  const BeaconSettings* settings = settings_->beacon(beacon);
  if (settings == nullptr && strangers_.size() >= kCapacity) forgetAStranger();
  const auto [made, isNew] = entries_.try_emplace(beacon, expectedBy(settings));
  Entry& entry = made->second;
  entry.settings = settings;
  entry.place = settings == nullptr ? strangers_.insert(strangers_.end(), &made->first) : strangers_.end();
  return entry;
}

void BeaconBook::forgetAStranger() {
  const auto oldest = entries_.find(*strangers_.front());
  if (oldest->second.presence.isPresent()) lose(oldest->first, oldest->second);
  handlers_.onState({kOwner, oldest->first.text()});
  strangers_.pop_front();
  entries_.erase(oldest);
}

BeaconBook::Time BeaconBook::exitTimeOf(const Entry& entry) const {
  const bool hasOwn = entry.settings != nullptr && entry.settings->exitTime;
  const ExitTime& exitTime = hasOwn ? *entry.settings->exitTime : choice_.exitTime;
  return exitTime.given ? inMilliseconds(*exitTime.given) : entry.gaps.limit();
}

void BeaconBook::lose(const BeaconId& beacon, Entry& entry) {
  entry.presence.lose();
  reportEvent(beacon, entry, Kind::lost, dispatch_->date());
}

KeptState BeaconBook::stateOf(const BeaconId& beacon, Entry& entry) const {
  entry.keptLimit = entry.gaps.limit();
  std::string text;
  if (entry.presence.isPresent()) text += kPresent;
  if (entry.isEmergency) text += kEmergency;
  return {kOwner, beacon.text(), text + kGaps + entry.gaps.text(listened())};
}

void BeaconBook::reportEvent(const BeaconId& beacon, Entry& entry, Kind kind, platform::Date heard) {
  handlers_.onEvent({.beacon = beacon, .heard = heard, .kind = kind}, stateOf(beacon, entry));
}

void BeaconBook::awaitUntil(Time due) {
  if (awaited_ && *awaited_ <= due) return;
  awaited_ = due;
  timer_->setTimer(platform::dispatch_time(dispatch_->now(), due - listened()),
                   platform::DISPATCH_TIME_FOREVER, platform::dispatch_time_t(0));
}

// Hearing a beacon only puts its deadline off, so that the timer rather comes too early, now and then.
void BeaconBook::awaitEarliest() {
  awaited_.reset();
  timer_->setTimer(platform::DISPATCH_TIME_FOREVER, platform::DISPATCH_TIME_FOREVER,
                   platform::dispatch_time_t(0));
  if (pausedAt_) return;
  std::optional<Time> earliest;
  for (const auto& [beacon, entry] : entries_)
    if (const auto due = entry.presence.due(exitTimeOf(entry)); due && (!earliest || *due < *earliest))
      earliest = due;
  if (earliest) awaitUntil(*earliest);
}

void BeaconBook::timeIsUp() {
  if (pausedAt_) return;
  std::map<std::pair<Time, BeaconId>, Entry*> silent;
  for (auto& [beacon, entry] : entries_)
    if (const auto due = entry.presence.due(exitTimeOf(entry)); due && *due <= listened())
      silent.emplace(std::pair(*due, beacon), &entry);
  for (const auto& [when, entry] : silent) lose(when.second, *entry);
  awaitEarliest();
}

}  // namespace brenloft
