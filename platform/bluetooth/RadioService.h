#pragma once

#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Export.h"

namespace platform {

/// Central managers over one source of advertising reports. Reports are merged with the newest report of the
/// other kind from the same address once, then filtered for each manager and delivered on its queue. The
/// source hears as long as at least one manager scans. It is opened with the first manager, and closed when
/// the service and all its managers are gone. Reports are not merged while no manager scans.
class BRL_EXPORT RadioService : public BluetoothService {
 public:
  /// `dispatch` gives the main queue to managers that are made without a queue.
  static std::shared_ptr<RadioService> make(std::shared_ptr<AdvertisingReportSource> source,
                                            std::shared_ptr<DispatchService> dispatch);

  /// Also hands every report, as it was heard, and every change of state to the given handlers, on the
  /// source's queue, before managers get them. Set before the first manager is made.
  virtual void observe(AdvertisingReportSource::ReportHandler onReport,
                       AdvertisingReportSource::StateHandler onState) = 0;
};

}  // namespace platform
