#pragma once

#include <string>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// The recent time of a beacon as a small SVG: its temperature from lowest to highest with the limits, else
/// when it was there.
std::string sparkline(const PageModel& page, const PageBeacon& beacon);

}  // namespace brenloft::web
