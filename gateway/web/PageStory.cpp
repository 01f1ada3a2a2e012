#include "gateway/web/PageStory.h"

#include <algorithm>
#include <utility>

namespace brenloft::web {
namespace {

using platform::Date;
using Kind = BeaconEvent::Kind;

constexpr std::string_view kListening = "poweredOn";
// Longer than any thinning leaves a history without a row while somebody listens: a beacon has one an hour.
constexpr std::chrono::minutes kStopped{65};

}  // namespace

bool PageStory::isStart(const BeaconEvent& event) const {
  return event.kind == Kind::radio && event.text.starts_with(kListening) && !silentSince_;
}

void PageStory::take(const BeaconEvent& event, std::optional<Date> silentFrom) {
  const auto after = pauseBefore(event);
  if (event.kind == Kind::radio) radio(event, silentFrom);
  if (event.beacon) {
    const auto [known, isFirst] = beacons_.try_emplace(*event.beacon);
    beacon(known->second, event, isFirst);
  }
  if (!span_.contains(event.heard)) return;
  events_.push_back({event, after});
  if (events_.size() <= kMostEvents) return;
  events_.pop_front();
  ++earlierEvents_;
}

std::optional<std::chrono::microseconds> PageStory::pauseBefore(const BeaconEvent& event) const {
  std::optional<Date> since;
  if (event.kind == Kind::radio && event.text.starts_with(kListening)) since = silentSince_;
  if (event.kind == Kind::found)
    if (const auto open = beacons_.find(*event.beacon); open != beacons_.end())
      since = open->second.story.lostAt;
  return since && *since <= event.heard ? std::optional(event.heard - *since) : std::nullopt;
}

void PageStory::radio(const BeaconEvent& event, std::optional<Date> silentFrom) {
  const bool isListening = event.text.starts_with(kListening);
  if (!isListening) {
    if (!silentSince_) silentSince_ = event.heard;
  } else if (silentSince_) {
    addOutage({*std::exchange(silentSince_, std::nullopt), event.heard});
  } else if (silentFrom && event.heard - *silentFrom >= kLeastStop) {
    addOutage({*silentFrom, event.heard});
  }
}

void PageStory::beacon(Open& open, const BeaconEvent& event, bool isFirst) {
  BeaconStory& story = open.story;
  switch (event.kind) {
    case Kind::found:
      if (isFirst) story.foundFirst = event.heard;
      story.isPresent = true;
      if (!open.presentSince) open.presentSince = event.heard;
      return;
    case Kind::lost:
      // Of a loss without a beginning the beginning was deleted.
      if (open.presentSince || !story.isPresent)
        addPresence(open, {open.presentSince.value_or(Date::min()), event.heard});
      open.presentSince.reset();
      story.lostAt = event.heard;
      story.isPresent = false;
      return;
    case Kind::emergency:
      if (!story.emergencySince) story.emergencySince = event.heard;
      return;
    case Kind::emergencyOver:
      addMark(open, {story.emergencySince.value_or(Date::min()), event.heard}, "");
      story.emergencySince.reset();
      return;
    case Kind::alarmRaised:
      story.raised.try_emplace(event.text, event.heard);
      return;
    case Kind::alarmCleared: {
      const auto raised = story.raised.find(event.text);
      addMark(open, {raised == story.raised.end() ? Date::min() : raised->second, event.heard}, event.text);
      story.raised.erase(event.text);
      return;
    }
    case Kind::radio:
    case Kind::gap:
      return;
  }
}

void PageStory::finish(Date heardLast, bool isWritten) {
  if (!silentSince_ && (!isWritten || heardLast < span_.until - kStopped)) silentSince_ = heardLast;
  const Date known = std::min(silentSince_.value_or(span_.until), span_.until);
  for (auto& [id, open] : beacons_) {
    if (open.presentSince) addPresence(open, {*open.presentSince, span_.until});
    if (open.story.emergencySince) addMark(open, {*open.story.emergencySince, known}, "");
    for (const auto& [rule, since] : open.story.raised) addMark(open, {since, known}, rule);
  }
  if (silentSince_) addOutage({*silentSince_, span_.until});
}

const BeaconStory* PageStory::find(const BeaconId& beacon) const {
  const auto found = beacons_.find(beacon);
  return found == beacons_.end() ? nullptr : &found->second.story;
}

std::optional<HistorySpan> PageStory::inSpan(HistorySpan part) const {
  const HistorySpan inside{std::max(part.since, span_.since), std::min(part.until, span_.until)};
  return inside.since < inside.until ? std::optional(inside) : std::nullopt;
}

void PageStory::addPresence(Open& open, HistorySpan part) const {
  if (const auto inside = inSpan(part)) open.story.presence.push_back(*inside);
}

void PageStory::addMark(Open& open, HistorySpan part, const std::string& rule) const {
  if (const auto inside = inSpan(part)) open.story.marks.push_back({*inside, rule});
}

void PageStory::addOutage(HistorySpan part) {
  if (const auto inside = inSpan(part)) outages_.push_back(*inside);
}

}  // namespace brenloft::web
