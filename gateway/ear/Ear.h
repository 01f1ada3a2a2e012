#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "gateway/Record.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// Makes readings of what the library tells its delegate; the only part of the gateway that knows the
/// library. Pass it the delegate's calls, each on the thread that it came on.
///
/// Where a beacon's scan response is heard, too, the library tells of each of the two, and of the same
/// values: that is one reading. Losses are none: the gateway finds its own.
///
/// Threads: one call at a time. The handler is called from inside.
class Ear {
 public:
  using Handler = std::function<void(Reading)>;

  Ear(std::shared_ptr<const platform::DispatchService> dispatch, Handler handler)
      : dispatch_(std::move(dispatch)), handler_(std::move(handler)) {}

  /// `didByteArray`: what `beacon` is told next on this thread is an advertisement.
  void bytes(const std::vector<std::string>& octets);
  /// `forBeacon`.
  void beacon(const BRLBeaconDataModel& beacon);
  /// `didRangeBeaconSensors`: a reading of each iBeacon that was heard in this second.
  void ranged(const BRLRecordList& beacons);

  /// Reports left out because they told the same again.
  uint64_t doubled() const { return doubled_; }

 private:
  struct Advertisement {
    std::thread::id thread;
    std::optional<int32_t> txPower;
  };
  struct Recent {
    platform::dispatch_time_t at;
    BeaconId beacon;
    Quantities raw;
  };

  bool isDoubled(const Reading& reading);

  const std::shared_ptr<const platform::DispatchService> dispatch_;
  const Handler handler_;
  std::optional<Advertisement> advertisement_;
  std::deque<Recent> recent_;           // the newest last
  std::vector<platform::Date> ranged_;  // when each of the library's records was heard last
  uint64_t doubled_ = 0;
};

}  // namespace brenloft
