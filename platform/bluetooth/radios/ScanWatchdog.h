#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"

namespace platform {

struct ScanWatchdogOptions {
  /// Makes the watched source, which calls its handlers on `queue`; called there, once at first and once for
  /// each reopening.
  std::function<std::shared_ptr<AdvertisingReportSource>(const dispatch_queue_t& queue)> makeSource;
  std::shared_ptr<DispatchService> dispatch;
  dispatch_queue_t queue;  ///< of the watchdog and what it watches; without one, a queue of their own
  std::chrono::seconds silence{60};        ///< how long a scan may hear nothing at all
  std::chrono::seconds longestPause{900};  ///< the most between two restarts
};

/// Restarts a scan that should hear and hears nothing: first by stopping and starting it, then by closing the
/// source and opening another one. The first restart comes after `silence`, the pauses to the next ones
/// double up to `longestPause`, and begin anew only when a restarted scan has been heard from for `silence`.
/// Each restart is told as a state with its reason.
///
/// Once `close` has returned, the watched source is closed, too; called from inside a handler, that follows
/// when the handler has returned.
std::shared_ptr<AdvertisingReportSource> makeScanWatchdog(ScanWatchdogOptions options);

}  // namespace platform
