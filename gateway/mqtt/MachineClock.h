#pragma once

#include "gateway/mqtt/Payloads.h"

namespace brenloft {

/// What the kernel knows of the machine's clock. Threads: any.
ClockState clockOfMachine();

}  // namespace brenloft
