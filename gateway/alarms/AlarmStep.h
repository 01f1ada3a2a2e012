#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "gateway/configuration/AlarmRule.h"

namespace brenloft {

/// An instant on a clock that stands still while nothing can be heard.
using ListenedTime = std::chrono::nanoseconds;

/// How one rule stands for one beacon. A value.
struct RuleState {
  enum class Phase : uint8_t {
    quiet,
    pending,  ///< beyond the limit, and not yet for long enough
    raised,
  };

  Phase phase = Phase::quiet;
  ListenedTime since{};                    ///< where it is pending: the hold began
  std::optional<ListenedTime> raisedAt{};  ///< the last time, until the cooldown from there is over
  std::optional<int32_t> value{};          ///< the newest one beyond the limit

  friend bool operator==(const RuleState&, const RuleState&) = default;
};

struct RuleEvent {
  bool isRaised;    ///< else cleared
  ListenedTime at;  ///< exactly, also when the step comes later
  std::optional<int32_t> value{};

  friend bool operator==(const RuleEvent&, const RuleEvent&) = default;
};

struct RuleStep {
  RuleState state;
  std::vector<RuleEvent> events{};
};

/// What the rule makes of one input: first of the time that has passed until `now`, then of the value. No
/// value is no answer: it neither raises nor clears. For silence any value will do. Pure.
RuleStep step(const AlarmRule& rule, const RuleState& state, std::optional<int32_t> value, ListenedTime now);

/// When the state changes without any value, if it does. Pure.
std::optional<ListenedTime> nextDeadline(const AlarmRule& rule, const RuleState& state);

/// Whether there is nothing to remember of it.
inline bool isForgettable(const RuleState& state) {
  return state.phase == RuleState::Phase::quiet && !state.raisedAt;
}

}  // namespace brenloft
