#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

namespace platform {

struct BeaconWorldOptions {
  static constexpr uint32_t kMaximumBeacons = 16'777'216;  ///< of both kinds together

  uint32_t sensors = 5;  ///< sensor beacons, each with a service UUID of its own
  uint32_t iBeacons = 0;
  uint64_t seed = 1;
  Date start = dateWithTimeIntervalSince1970(1'767'225'600);  ///< the world's first instant
  std::chrono::microseconds interval =
      std::chrono::seconds(1);  ///< usual time between two packets of a beacon
};

/// A believable place full of beacons, the same for the same options on every machine.
///
/// Sensor beacons walk randomly in their readings and signal strength; now and then one signals an emergency
/// for some seconds, and one in four falls silent from time to time and returns. Every fourth
/// advertises a 128-bit service UUID in its scan response, the others a 16-bit one beside the frame. iBeacons
/// come in two proximity UUIDs and several majors and minors; every third leaves for a while and comes back.
/// With two beacons or more, the first ten seconds have a silence that is long enough for an exit time of
/// five; with three or more they have an emergency as well.
///
/// Threads: one at a time.
class BRL_EXPORT BeaconWorld {
 public:
  /// Of the iBeacons; two of every three have the first one.
  static constexpr std::array<const char*, 2> kProximityUUIDs{"51C70E2A-9B44-4D1F-8A63-2FD075E81C36",
                                                              "A90D46F3-127B-4AE5-9C08-6D31BE52F784"};

  explicit BeaconWorld(const BeaconWorldOptions& options);
  BeaconWorld(const BeaconWorld&) = delete;
  BeaconWorld& operator=(const BeaconWorld&) = delete;
  ~BeaconWorld();

  /// The next report, never earlier than the one before. Its data is lent until the next call. A world has no
  /// end. In a world without beacons the report's time is the latest date there is.
  AdvertisingReport next();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace platform
