#pragma once

#include <functional>
#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"

namespace platform {

/// Whether an advertisement, merged, is delivered. Called on the source's queue.
using AdvertisementFilter = std::function<bool(const CBAdvertisementData&)>;

/// Central managers over one source of advertising reports. Each report is merged, once for all managers,
/// with the newest one of the other kind from its address. Then it is filtered for each manager and delivered
/// on its queue. The source hears as long as at least one manager scans; while none does, nothing is merged.
/// It is opened with the first manager, and closed when the service and all its managers are gone.
///
/// A slow manager does not hold up the source: at most 10,000 reports wait in its queue. Beyond that a
/// sender's newest report replaces its older one that waits, or is dropped and counted where none waits. On
/// virtual time all reports wait.
class BRL_EXPORT RadioService : public BluetoothService {
 public:
  /// Managers that are made without a queue use the main queue of `dispatch`. `onDiagnostic` gets one line
  /// for people, on any thread, when reports come faster than a manager takes them. What `filter` refuses
  /// goes to no manager.
  static std::shared_ptr<RadioService> make(std::shared_ptr<AdvertisingReportSource> source,
                                            std::shared_ptr<DispatchService> dispatch,
                                            LogSink onDiagnostic = {}, AdvertisementFilter filter = {});
};

}  // namespace platform
