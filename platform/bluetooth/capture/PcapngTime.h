#pragma once

#include <cstdint>

#include "platform/foundation/Date.h"

namespace platform {

/// How an interface of a pcapng file counts time (if_tsresol, if_tsoffset).
struct PcapngClock {
  uint8_t resolution = 6;     ///< ticks of 10^-n seconds, or of 2^-n with the highest bit set
  int64_t offsetSeconds = 0;  ///< added to every time

  /// Finer parts of a microsecond fall away.
  Date dateOf(uint64_t ticks) const;
};

}  // namespace platform
