#pragma once

#include "gateway/Record.h"
#include "gateway/SensorRanges.h"

namespace brenloft {

/// Whether a sensor can have measured the raw values of this reading, or the first reason why not. What is
/// absent is no reason, and an iBeacon measures nothing. Pure.
Verdict judge(const Reading& reading);

}  // namespace brenloft
