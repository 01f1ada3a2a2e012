#pragma once

#include <functional>
#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/simulated/BeaconWorld.h"

namespace platform {

/// A radio in a simulated world, at the pace of the given dispatch service (virtual or real time). The world
/// begins at the date of the first scan, whatever start its options name, and ends `duration` later; then
/// `onEnd` is called once, on the source's queue. DISPATCH_TIME_FOREVER never ends. What is sent while nobody
/// scans is not heard.
BRL_EXPORT std::shared_ptr<AdvertisingReportSource> makeSimulatedWorldSource(
    std::shared_ptr<DispatchService> dispatch, const BeaconWorldOptions& options, dispatch_time_t duration,
    std::function<void()> onEnd = {});

}  // namespace platform
