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

/// Central managers over one source of advertising reports. Reports are merged with the newest report of the
/// other kind from the same address once, then filtered for each manager and delivered on its queue. The
/// source hears as long as at least one manager scans. It is opened with the first manager, and closed when
/// the service and all its managers are gone. Reports are not merged while no manager scans.
///
/// A source is not held up by a manager's queue: there, 10,000 reports wait at most. Beyond them the newest
/// report of a sender takes the place of the one before it that waits, or is dropped and counted where none
/// does. On virtual time all of them wait.
class BRL_EXPORT RadioService : public BluetoothService {
 public:
  /// `dispatch` gives the main queue to managers that are made without a queue. `onDiagnostic` takes one line
  /// for people, from any thread: that reports come faster than a manager takes them. What `filter` refuses
  /// goes to no manager.
  static std::shared_ptr<RadioService> make(std::shared_ptr<AdvertisingReportSource> source,
                                            std::shared_ptr<DispatchService> dispatch,
                                            LogSink onDiagnostic = {}, AdvertisementFilter filter = {});
};

}  // namespace platform
