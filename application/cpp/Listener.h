#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "application/cpp/Hearing.h"
#include "application/cpp/brenloft.hpp"
#include "platform/bluetooth/CBCentralManager.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/dispatch/CallGate.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSUUID.h"

namespace brenloft {

/// What is searched for, in the terms of the radio.
struct Wanted {
  bool sensors = true;
  bool iBeacons = false;
  std::vector<platform::CBUUID> services{};
  struct Region {
    platform::NSUUID uuid;
    std::optional<uint16_t> major;
    std::optional<uint16_t> minor;
  };
  std::vector<Region> regions{};
  std::chrono::nanoseconds lostAfter{};
  std::vector<std::string> expected{};

  static Result<Wanted> of(const Settings& settings);
};

/// Makes events of what a central hears: decodes, finds who is new, who is lost, whose emergency begins.
///
/// Threads: operations on any; everything else happens on the search's queue, on which `onEvent` is called.
class Listener final : private platform::CBCentralManagerDelegate,
                       public std::enable_shared_from_this<Listener> {
 public:
  Listener(Hearing hearing, platform::dispatch_queue_t queue, Wanted wanted,
           std::function<void(Event)> onEvent);
  ~Listener() override;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  void start();
  /// No event begins once it has returned; one that is being handled on another thread is waited for.
  void stop() { gate_.close(); }

 private:
  using Instant = platform::dispatch_time_t;
  struct Beacon {
    std::string id;
    Instant at{};
    Time heard{};
    bool isHeard = false;  // not only expected
    bool isEmergency = false;
    std::optional<Reading> last{};  // of a sensor
  };
  using Beacons = std::list<Beacon>;

  void centralManagerDidUpdateState(platform::CBCentralManager& central) override;
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      platform::CBCentralManager& central, const platform::CBPeripheral& peripheral,
      const platform::CBAdvertisementData& advertisement, int64_t rssi) override;

  void changed(const platform::RadioState& state);
  void startScan(platform::CBCentralManager& central) const;
  void heard(Reading reading);
  void heard(Sighting sighting);
  bool isWanted(const Sighting& sighting) const;
  Beacons::iterator add(const std::string& id);
  Beacon& present(const std::string& id, Time time);
  Instant dueOf(const Beacon& beacon) const;
  void await();
  void loseSilent();

  void discovered(const platform::CBAdvertisementData& advertisement, int64_t rssi);

  const Hearing hearing_;
  const platform::dispatch_queue_t queue_;
  const Wanted wanted_;
  const std::function<void(Event)> onEvent_;
  Beacons beacons_;                                               // the one silent longest first
  std::unordered_map<std::string_view, Beacons::iterator> byId_;  // by the texts in `beacons_`
  bool isListening_ = false;
  Instant listeningSince_{};
  std::optional<Instant> awaited_;
  platform::dispatch_source_t timer_;
  std::shared_ptr<const RadioStates::Handler> states_;
  std::unique_ptr<platform::CBCentralManager> central_;
  platform::CallGate gate_;
};

}  // namespace brenloft
