#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLRecordList.h"
#include "gateway/Record.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/location/iBeaconFrame.h"

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
  /// An iBeacon's advertisement, before the library hears it. Its reports do not tell one that was heard
  /// without a signal strength from one that was not heard. Threads: any.
  void frame(const platform::iBeaconFrame& frame);
  /// `didRangeBeaconSensors`: a reading of each iBeacon that was heard in this second.
  void ranged(const BRLRecordList& beacons);

  /// Reports left out because they told the same again.
  uint64_t doubled() const { return doubled_; }

 private:
  struct Advertisement {
    std::thread::id thread;
    std::optional<int32_t> txPower;
  };
  struct Report {
    BeaconId beacon;
    Quantities raw;

    bool operator<(const Report& other) const;
  };
  using Reports = std::set<Report>;

  bool isDoubled(const Reading& reading);
  std::set<BeaconId> takeFrames();

  const std::shared_ptr<const platform::DispatchService> dispatch_;
  const Handler handler_;
  std::optional<Advertisement> advertisement_;
  Reports recent_;
  std::deque<std::pair<platform::dispatch_time_t, Reports::iterator>> times_;  // of these, the newest last
  std::vector<platform::Date> ranged_;  // when each of the library's records was heard last
  uint64_t doubled_ = 0;

  std::mutex mutex_;                                                   // guards what follows
  std::set<std::tuple<platform::NSUUID, uint16_t, uint16_t>> frames_;  // heard since the last report
};

}  // namespace brenloft
