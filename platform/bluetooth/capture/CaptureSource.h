#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/capture/CaptureReader.h"
#include "platform/dispatch/Dispatch.h"

namespace platform {

/// The handlers run on the source's queue, none after `close` has returned. Each may be left out.
struct CaptureSourceOptions {
  std::string path;
  /// On real time: records come at the pace at which they were captured, else one after the other at once.
  bool paced = false;
  /// Once, at the instant of the last record, after what its reports set going at that instant.
  std::function<void()> onEnd;
  std::function<void(const CaptureDiagnostic&)> onDiagnostic;
  /// Octets read so far and in all; about a hundred times, and only for files whose size is known.
  std::function<void(uint64_t position, uint64_t size)> onProgress;
  /// Ends the wait for what a pipe does not bring, and with it the capture.
  std::stop_token stop;
};

/// A radio that hears what a capture holds. It is on until the capture says otherwise: then it tells the
/// state that its recorded radio had, and hears nothing while that was not on.
///
/// The replay begins with the first scan. On virtual time (a `VirtualDispatch`) it follows the capture's
/// clock: the time between two records passes, though never more than a day, nothing passes where that clock
/// went back, and the date is the record's own when its reports are delivered; timers that are due before
/// then fire before. Records that come while no scan runs are not heard. A scan that ends and begins anew
/// within one instant misses nothing. At the pace of real time the same holds, without the date and with a
/// tenth of a second for an instant; without a pace the replay waits for the scan.
class CaptureSource : public AdvertisingReportSource {
 public:
  /// Opens the file and, on virtual time, sets the date to that of the first record. Fails, with a
  /// text that names the file, when it cannot be read.
  static Result<std::shared_ptr<CaptureSource>> make(CaptureSourceOptions options,
                                                     const std::shared_ptr<DispatchService>& dispatch);
};

}  // namespace platform
