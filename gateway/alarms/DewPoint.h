#pragma once

#include <cstdint>
#include <optional>

namespace brenloft {

/// The temperature at which the air's water begins to condense, in hundredths of a degree, from hundredths of
/// a degree and of a percent of relative humidity. Nothing where the formula does not hold: outside of -45 °C
/// to 60 °C, and without any humidity. Pure.
///
/// Magnus' formula over water, e(t) = 6.112 hPa * exp(17.62 t / (243.12 °C + t)), solved for t, with the
/// coefficients of the World Meteorological Organization's Guide to Instruments and Methods of Observation
/// (WMO-No. 8, 2018, volume I, annex 4.B).
std::optional<int32_t> dewPoint(int32_t temperature, int32_t humidity);

}  // namespace brenloft
