#pragma once

#include <functional>
#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/radios/RadioSource.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSLog.h"

namespace platform {

/// The radio that this machine offers, looked for when the source is opened and again, with growing pauses,
/// while there is none. What was found, or why nothing was, and the reason of each state go to `log`.
/// The radio lives on the queue that `look` is given, on which it is called; another one is for tests.
std::shared_ptr<AdvertisingReportSource> makeNativeRadio(
    std::shared_ptr<DispatchService> dispatch, LogSink log,
    std::function<RadioSourceResult(const RadioSourceOptions&)> look = makeRadioSource);

}  // namespace platform
