#pragma once

#include <algorithm>
#include <utility>

#include "platform/dispatch/Dispatch.h"

namespace platform {

/// The pauses between tries: each is twice the one before, up to the longest.
class Backoff {
 public:
  Backoff(dispatch_time_t first, dispatch_time_t longest)
      : first_(std::min(first, longest)), longest_(longest), pause_(first_) {}

  /// The pause to make now; `atMost` holds it, and those that grow from it, down.
  dispatch_time_t next(dispatch_time_t atMost = DISPATCH_TIME_FOREVER) {
    const dispatch_time_t pause = std::min(pause_, atMost);
    pause_ = std::min(pause * 2, longest_);
    return pause;
  }
  void reset() { pause_ = first_; }

 private:
  const dispatch_time_t first_;
  const dispatch_time_t longest_;
  dispatch_time_t pause_;
};

}  // namespace platform
