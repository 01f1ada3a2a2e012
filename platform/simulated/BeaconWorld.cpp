#include "platform/simulated/BeaconWorld.h"

#include <functional>
#include <queue>
#include <utility>
#include <vector>

#include "platform/simulated/WorldBeacon.h"

namespace platform {

struct BeaconWorld::State {
  using Turn = std::pair<WorldTime, std::size_t>;  // when, and who

  Date start;
  std::vector<std::unique_ptr<WorldBeacon>> beacons;
  std::priority_queue<Turn, std::vector<Turn>, std::greater<>> turns;
  Data octets;

  void add(std::unique_ptr<WorldBeacon> beacon) {
    turns.emplace(beacon->nextTime(), beacons.size());
    beacons.push_back(std::move(beacon));
  }
};

BeaconWorld::BeaconWorld(const BeaconWorldOptions& options) : state_(std::make_unique<State>()) {
  state_->start = options.start;
  for (uint32_t i = 0; i < options.sensors; ++i) state_->add(makeWorldSensor(options, i));
  for (uint32_t i = 0; i < options.iBeacons; ++i) state_->add(makeWorldIBeacon(options, i));
}

BeaconWorld::~BeaconWorld() = default;

AdvertisingReport BeaconWorld::next() {
  if (state_->turns.empty()) return {.time = Date::max(), .address = {}, .data = {}};
  const auto [time, index] = state_->turns.top();
  state_->turns.pop();
  WorldBeacon& beacon = *state_->beacons[index];
  const SimulatedAdvertisement sent = beacon.send();
  state_->turns.emplace(beacon.nextTime(), index);
  state_->octets = sent.octets();
  return {.time = state_->start + time,
          .address = sent.address,
          .kind = sent.kind,
          .rssi = sent.rssi,
          .isTruncated = false,
          .data = state_->octets};
}

}  // namespace platform
