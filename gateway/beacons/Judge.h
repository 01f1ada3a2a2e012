#pragma once

#include "gateway/Record.h"

namespace brenloft {

// Any device that sends 22 octets of manufacturer data and a service UUID is decoded as a sensor. These are
// the ranges of what a sensor can measure: wider than any data sheet's, narrower than what chance sends.
inline constexpr int32_t kColdest = -60'00;
inline constexpr int32_t kHottest = 125'00;
inline constexpr int32_t kWettest = 100'00;
inline constexpr int32_t kFullBattery = 100;

/// Whether a sensor can have measured the raw values of this reading, or the first reason why not. What is
/// absent is no reason, and an iBeacon measures nothing. Pure.
Verdict judge(const Reading& reading);

}  // namespace brenloft
