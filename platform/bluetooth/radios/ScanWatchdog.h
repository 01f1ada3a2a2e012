#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"

namespace platform {

struct ScanWatchdogOptions {
  /// Makes the watched source; called once at first and once for each reopening.
  std::function<std::shared_ptr<AdvertisingReportSource>()> makeSource;
  std::shared_ptr<DispatchService> dispatch;
  std::chrono::seconds silence{60};        ///< how long a scan may hear nothing at all
  std::chrono::seconds longestPause{900};  ///< the most between two restarts
  /// Takes one line for people; from the watchdog's queue or the thread that closes.
  std::function<void(std::string_view line)> onDiagnostic;
};

/// Reports that wait for their handler; what comes beyond them is dropped, counted and told.
constexpr int kMostWaitingReports = 10'000;

/// Restarts a scan that should hear and hears nothing: first by stopping and starting it, then by closing the
/// source and opening another one. The first restart comes after `silence`, the pauses to the next ones
/// double up to `longestPause`, and begin anew only when a restarted scan has been heard from for `silence`.
/// Each restart is told as a state with its reason.
///
/// Everything is handed on through a queue of its own, so that reports and states keep one order. Once
/// `close` has returned, the watched source is closed, too; called from inside a handler, that follows when
/// the handler has returned.
std::shared_ptr<AdvertisingReportSource> makeScanWatchdog(ScanWatchdogOptions options);

}  // namespace platform
