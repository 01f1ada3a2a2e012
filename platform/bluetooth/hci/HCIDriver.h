#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/dispatch/Dispatch.h"

namespace platform {

/// What a driver has met since it was made.
struct HCIDriverCounters {
  uint64_t reports = 0;        ///< handed on
  uint64_t malformed = 0;      ///< packets that did not hold what they said
  uint64_t skippedOctets = 0;  ///< between packets, where the stream made no sense
  uint64_t commandTimeouts = 0;
  uint64_t connections = 0;  ///< transports that opened
  uint64_t scanStarts = 0;   ///< scans that the controller agreed to
};

struct HCIDriverOptions {
  std::shared_ptr<DispatchService> dispatch;
  HCITransportFactory makeTransport;  ///< called on the driver's queue, once per try
  /// What the states do not tell: one line for people, without line end; on the driver's queue, at most a few
  /// a minute. May be empty.
  std::function<void(std::string_view)> onDiagnostic;
  dispatch_queue_t queue = nullptr;  ///< the driver's; without one, a queue of its own
};

/// Hears through a controller that speaks HCI (Bluetooth Core, Vol 4, Part E), over any transport.
///
/// Initialises the controller, scans actively with the legacy or the extended commands as the controller has
/// them, and survives what goes wrong: a command without an answer is repeated, a dead controller or
/// transport makes the state `resetting` and is tried again after 1, 2, 4 … 60 seconds, an adapter that is
/// away, off or somebody else's is looked for every four seconds, a scan that somebody else ended is started
/// anew. A controller that merely falls silent is for its user to notice; `stopScan`
/// and `startScan` begin the scan anew, `close` and another driver the controller too.
class HCIDriver : public AdvertisingReportSource {
 public:
  static std::shared_ptr<HCIDriver> make(HCIDriverOptions options);

  /// From any thread.
  virtual HCIDriverCounters counters() const = 0;
};

}  // namespace platform
