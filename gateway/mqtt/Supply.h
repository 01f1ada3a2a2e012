#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "gateway/mqtt/Message.h"

namespace brenloft {

/// A clock that never goes back.
using Instant = std::chrono::nanoseconds;

/// Where a session's messages come from.
///
/// Threads: as the session.
class Supply {
 public:
  /// How a message ended.
  enum class Outcome {
    taken,      ///< the broker has it
    unheard,    ///< the same, and nobody whom it could give it to
    forbidden,  ///< by the broker's access list: this kind of message is not sent for a while, and kept
    busy,       ///< the broker cannot take it now: the same
    wrong,      ///< it will never be taken
  };
  struct Outgoing {
    uint64_t key = 0;  ///< for `settle`
    Message message;
  };

  Supply() = default;
  Supply(const Supply&) = delete;
  Supply& operator=(const Supply&) = delete;
  virtual ~Supply() = default;

  /// A connection begins: whatever was under way and not settled is to be sent again.
  virtual void begin(Instant now, uint32_t largestMessage) = 0;
  /// What is to be sent next, the most important first; none for now. `room` is how many more may be under
  /// way.
  virtual std::optional<Outgoing> next(Instant now, std::size_t room) = 0;
  virtual void settle(Instant now, uint64_t key, Outcome outcome) = 0;
  /// When `next` may have something that it has not now, were nothing else to happen.
  virtual std::optional<Instant> due() const = 0;
};

}  // namespace brenloft
