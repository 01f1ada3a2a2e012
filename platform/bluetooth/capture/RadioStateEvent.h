#pragma once

#include <optional>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

// A capture keeps the states of the radio that it was recorded from in the vendor's event (code 0xFF), which
// whoever does not know its content passes over.

/// The whole event. A reason that is too long for it is cut.
Data radioStateEvent(const RadioState& state);

/// Nothing when it is another event.
std::optional<RadioState> radioStateOf(DataView event);

}  // namespace platform
