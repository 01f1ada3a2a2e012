#pragma once

#include <cstdint>

namespace brenloft {

// Any device that sends 22 octets of manufacturer data and a service UUID is decoded as a sensor. These are
// the ranges of what a sensor can measure: wider than any data sheet's, narrower than what chance sends.
inline constexpr int32_t kColdest = -60'00;  // hundredths of a degree
inline constexpr int32_t kHottest = 125'00;
inline constexpr int32_t kWettest = 100'00;  // hundredths of a percent
inline constexpr int32_t kFullBattery = 100;

}  // namespace brenloft
