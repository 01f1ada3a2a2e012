#include "gateway/alarms/AlarmStep.h"

#include <algorithm>

namespace brenloft {
namespace {

using Phase = RuleState::Phase;

bool isBeyond(const AlarmRule& rule, int32_t value, int32_t hysteresis) {
  return (rule.above && value > *rule.above - hysteresis) || (rule.below && value < *rule.below + hysteresis);
}

// A raise that waits for the cooldown comes at its end.
void letTimePass(const AlarmRule& rule, RuleStep& step, ListenedTime now) {
  const auto due = nextDeadline(rule, step.state);
  if (!due || *due > now) return;
  if (step.state.phase == Phase::quiet) return step.state.raisedAt.reset();
  step.state.phase = Phase::raised;
  step.state.raisedAt = *due;
  step.events.push_back({.isRaised = true, .at = *due, .value = step.state.value});
}

void clear(RuleStep& step, std::optional<int32_t> value, ListenedTime now) {
  step.state.phase = Phase::quiet;
  step.events.push_back({.isRaised = false, .at = now, .value = value});
}

// Its limit is the end of the silence, which begins anew.
void hear(RuleStep& step, ListenedTime now) {
  if (step.state.phase == Phase::raised) clear(step, {}, now);
  step.state.phase = Phase::pending;
  step.state.since = now;
}

void compare(const AlarmRule& rule, RuleStep& step, int32_t value, ListenedTime now) {
  RuleState& state = step.state;
  const bool isRaised = state.phase == Phase::raised;
  if (!isBeyond(rule, value, isRaised ? rule.hysteresis : 0)) {
    if (isRaised) clear(step, value, now);
    state.phase = Phase::quiet;
    state.value.reset();
    return;
  }
  state.value = value;
  if (state.phase != Phase::quiet) return;
  state.phase = Phase::pending;
  state.since = now;
}

}  // namespace

RuleStep step(const AlarmRule& rule, const RuleState& state, std::optional<int32_t> value, ListenedTime now) {
  RuleStep step{state};
  letTimePass(rule, step, now);
  if (!value) return step;
  if (rule.quantity == AlarmRule::Quantity::silence)
    hear(step, now);
  else
    compare(rule, step, *value, now);
  letTimePass(rule, step, now);
  return step;
}

std::optional<ListenedTime> nextDeadline(const AlarmRule& rule, const RuleState& state) {
  const auto rested = state.raisedAt ? std::optional(*state.raisedAt + rule.cooldown) : std::nullopt;
  switch (state.phase) {
    case Phase::quiet:
      return rested;
    case Phase::pending:
      return std::max(state.since + rule.hold, rested.value_or(ListenedTime::min()));
    case Phase::raised:
      break;
  }
  return std::nullopt;
}

}  // namespace brenloft
