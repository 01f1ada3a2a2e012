#pragma once

#include <optional>

#include "gateway/beacons/GapLearner.h"

namespace brenloft {

/// Whether a beacon is there: it is from when it is heard until it was silent for its exit time. On the clock
/// of `GapLearner`. Pure: a value.
class Presence {
 public:
  using Time = GapLearner::Time;

  bool isPresent() const { return since_.has_value(); }
  /// Whether it was not there before.
  bool heard(Time at) {
    const bool isNew = !since_;
    since_ = at;
    return isNew;
  }
  /// Silence before this instant does not count.
  void radioReturned(Time at) {
    if (since_) since_ = at;
  }
  /// When it will be lost; nothing when it is.
  std::optional<Time> due(Time exitTime) const {
    return since_ ? std::optional(*since_ + exitTime) : std::nullopt;
  }
  void lose() { since_.reset(); }

 private:
  std::optional<Time> since_;  // the silence began
};

}  // namespace brenloft
