#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "platform/simulated/BeaconWorld.h"
#include "platform/simulated/SimulatedAdvertisement.h"

namespace platform {

/// Random numbers that are the same on every machine (SplitMix64).
class WorldRandom {
 public:
  explicit WorldRandom(uint64_t seed) : state_(seed) {}
  uint64_t next();
  /// From `low` to `high`, both included.
  int64_t between(int64_t low, int64_t high);
  /// One step of a random walk within bounds.
  template <class Number>
  void walk(Number& value, int64_t step, int64_t low, int64_t high) {
    value = static_cast<Number>(std::min(high, std::max(low, int64_t{value} + between(-step, step))));
  }

 private:
  uint64_t state_;
};

/// Times since the world began.
using WorldTime = std::chrono::microseconds;

/// Something that holds for a while, again and again. Asked at times that never go back.
class WorldEpisodes {
 public:
  struct Range {
    WorldTime shortest;
    WorldTime longest;
  };

  /// Never.
  WorldEpisodes() = default;
  WorldEpisodes(Range firstBegin, Range firstLength, Range gap, Range length, WorldRandom& random);

  bool covers(WorldTime time, WorldRandom& random);
  /// The end of the episode that `covers` found.
  WorldTime end() const { return end_; }

 private:
  WorldTime begin_ = WorldTime::max();
  WorldTime end_ = WorldTime::max();
  Range gap_{};
  Range length_{};
};

/// One sender in the world.
class WorldBeacon {
 public:
  WorldBeacon(BluetoothAddress address, WorldTime interval, WorldRandom random);
  virtual ~WorldBeacon() = default;

  /// When it sends next.
  WorldTime nextTime() const { return nextTime_; }
  /// What it sends then; `nextTime` moves on.
  SimulatedAdvertisement send();

 protected:
  /// The packet of this moment. A scan response that belongs to it is left in `response`.
  virtual SimulatedAdvertisement packet(WorldTime now) = 0;

  const BluetoothAddress& address() const { return address_; }
  int8_t rssi() const { return rssi_; }
  WorldRandom random;
  WorldEpisodes absences;
  std::unique_ptr<SimulatedAdvertisement> response;

 private:
  void scheduleNext(WorldTime after);

  BluetoothAddress address_;
  WorldTime interval_;
  WorldTime packetTime_{};
  WorldTime nextTime_{};
  int8_t rssi_ = -60;
};

std::unique_ptr<WorldBeacon> makeWorldSensor(const BeaconWorldOptions& options, uint32_t index);
std::unique_ptr<WorldBeacon> makeWorldIBeacon(const BeaconWorldOptions& options, uint32_t index);

}  // namespace platform
