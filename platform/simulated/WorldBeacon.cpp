#include "platform/simulated/WorldBeacon.h"

#include <algorithm>
#include <string>
#include <utility>

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr NSUUID::Octets kSensorUUID = {0x3D, 0x81, 0x5F, 0x0A, 0x6E, 0x27, 0x4C, 0x93,
                                        0xB1, 0x58, 0x90, 0x4E, 0x2C, 0x00, 0x00, 0x00};
/// Sensors beyond these do not get a 16-bit UUID of their own.
constexpr uint32_t kShortUUIDs = 0x5000;
constexpr uint32_t kFirstShortUUID = 0xA000;
/// The usual time between an advertisement and its scan response.
constexpr WorldTime kResponseDelay{420};

uint8_t octetOf(uint64_t value, unsigned shift) {
  return static_cast<uint8_t>(value >> shift & 0xFFU);
}

WorldRandom randomFor(const BeaconWorldOptions& options, uint64_t family, uint32_t index) {
  WorldRandom seeds(options.seed ^ (family << 56U));
  return WorldRandom(seeds.next() + index * 0xD1B54A32D192ED03U);
}

/// A static random address that tells sensors from iBeacons and one seed's world from another's.
BluetoothAddress addressFor(const BeaconWorldOptions& options, uint8_t family, uint32_t index) {
  const uint64_t mixed = WorldRandom(options.seed).next();
  return {.octets = {static_cast<uint8_t>(0xC0U | family), octetOf(mixed, 0), octetOf(mixed, 8),
                     octetOf(index, 16), octetOf(index, 8), octetOf(index, 0)},
          .isRandom = true};
}

class WorldSensor final : public WorldBeacon {
 public:
  WorldSensor(const BeaconWorldOptions& options, uint32_t index)
      : WorldBeacon(addressFor(options, 0, index), options.interval, randomFor(options, 1, index)),
        index_(index),
        hasLongUUID_(index % 4 == 3 || index >= kShortUUIDs),
        service_(serviceFor(index)) {
    frame_ = {.temperature = static_cast<int16_t>(random.between(1800, 2600)),
              .humidity = static_cast<uint16_t>(random.between(3500, 6500)),
              .txPower = 4,
              .battery = static_cast<uint8_t>(random.between(55, 100)),
              .emergency = 0,
              .uniqueId = address().octets,
              .xAccel = 0,
              .yAccel = 0,
              .zAccel = 1000,
              .tbd = {1, 0, 0}};
    const bool isRestless = index % 4 == 2;
    emergencies_ =
        WorldEpisodes(isRestless ? Range{seconds(3), seconds(4)} : Range{seconds(30), seconds(240)},
                      {milliseconds(2500), milliseconds(3500)}, {seconds(90), seconds(400)},
                      {seconds(2), seconds(6)}, random);
    if (index % 4 == 1)
      absences = WorldEpisodes({seconds(2), milliseconds(2500)}, {milliseconds(6300), milliseconds(6800)},
                               {seconds(25), seconds(90)}, {seconds(6), seconds(40)}, random);
  }

 protected:
  SimulatedAdvertisement packet(WorldTime now) override {
    measure(now);
    SimulatedAdvertisement sent = sensorAdvertisement(address(), service_, frame_, rssi());
    if (!hasLongUUID_) return sent;
    response = std::make_unique<SimulatedAdvertisement>(
        SimulatedAdvertisement{.address = address(),
                               .kind = AdvertisingKind::scanResponse,
                               .rssi = rssi(),
                               .flags = {},
                               .serviceUUIDs = std::exchange(sent.serviceUUIDs, {}),
                               .manufacturerData = {},
                               .localName = "Sensor " + std::to_string(index_ % 1000)});
    return sent;
  }

 private:
  using Range = WorldEpisodes::Range;

  CBUUID serviceFor(uint32_t index) const {
    if (!hasLongUUID_) return CBUUID::fromShort(kFirstShortUUID + index);
    NSUUID::Octets octets = kSensorUUID;
    for (unsigned i = 0; i < 3; ++i) octets[13 + i] = octetOf(index, 16 - 8 * i);
    return CBUUID(NSUUID(octets));
  }

  void measure(WorldTime now) {
    random.walk(frame_.temperature, 7, 1200, 3200);
    random.walk(frame_.humidity, 15, 2000, 8500);
    random.walk(frame_.xAccel, 12, -80, 80);
    random.walk(frame_.yAccel, 12, -80, 80);
    random.walk(frame_.zAccel, 6, 960, 1040);
    if (random.between(0, 599) == 0 && frame_.battery > 1) --frame_.battery;
    frame_.emergency = emergencies_.covers(now, random) ? 1 : 0;
    ++frame_.tbd[2];
  }

  uint32_t index_;
  bool hasLongUUID_;
  CBUUID service_;
  SensorFrame frame_;
  WorldEpisodes emergencies_;
};

class WorldIBeacon final : public WorldBeacon {
 public:
  WorldIBeacon(const BeaconWorldOptions& options, uint32_t index)
      : WorldBeacon(addressFor(options, 1, index), options.interval, randomFor(options, 2, index)),
        frame_{.proximityUUID =
                   *NSUUID::initWithUUIDString(BeaconWorld::kProximityUUIDs[index % 3 == 2 ? 1 : 0]),
               .major = static_cast<uint16_t>(1 + index % 4 + (index >> 16U) * 4),
               .minor = static_cast<uint16_t>(index & 0xFFFFU)} {
    if (index % 3 == 1)
      absences = WorldEpisodes({seconds(4), seconds(6)}, {seconds(12), seconds(20)},
                               {seconds(40), seconds(120)}, {seconds(35), seconds(60)}, random);
  }

 protected:
  SimulatedAdvertisement packet(WorldTime) override {
    return iBeaconAdvertisement(address(), frame_, rssi());
  }

 private:
  iBeaconFrame frame_;
};

}  // namespace

uint64_t WorldRandom::next() {
  uint64_t z = state_ += 0x9E3779B97F4A7C15U;
  z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
  return z ^ (z >> 31U);
}

int64_t WorldRandom::between(int64_t low, int64_t high) {
  return low + static_cast<int64_t>(next() % static_cast<uint64_t>(high - low + 1));
}

WorldEpisodes::WorldEpisodes(Range firstBegin, Range firstLength, Range gap, Range length,
                             WorldRandom& random)
    : begin_(random.between(firstBegin.shortest.count(), firstBegin.longest.count())),
      end_(begin_ + WorldTime(random.between(firstLength.shortest.count(), firstLength.longest.count()))),
      gap_(gap),
      length_(length) {}

bool WorldEpisodes::covers(WorldTime time, WorldRandom& random) {
  while (time >= end_) {
    begin_ = end_ + WorldTime(random.between(gap_.shortest.count(), gap_.longest.count()));
    end_ = begin_ + WorldTime(random.between(length_.shortest.count(), length_.longest.count()));
  }
  return time >= begin_;
}

WorldBeacon::WorldBeacon(BluetoothAddress address, WorldTime interval, WorldRandom randomNumbers)
    : random(randomNumbers),
      address_(address),
      interval_(interval),
      packetTime_(random.between(0, interval_.count())),
      nextTime_(packetTime_),
      rssi_(static_cast<int8_t>(random.between(-85, -48))) {}

SimulatedAdvertisement WorldBeacon::send() {
  if (response) {
    const auto sent = std::exchange(response, nullptr);
    scheduleNext(packetTime_);
    return std::move(*sent);
  }
  packetTime_ = nextTime_;
  random.walk(rssi_, 2, -96, -38);
  SimulatedAdvertisement sent = packet(packetTime_);
  if (response)
    nextTime_ = packetTime_ + kResponseDelay;
  else
    scheduleNext(packetTime_);
  return sent;
}

/// The interval wobbles by a twentieth, and each packet by up to ten milliseconds as the standard asks.
void WorldBeacon::scheduleNext(WorldTime after) {
  const int64_t wobble = interval_.count() / 20;
  const WorldTime delay = interval_ + WorldTime(random.between(-wobble, wobble) + random.between(0, 10'000));
  nextTime_ = after + std::max(delay, kResponseDelay * 2);
  if (absences.covers(nextTime_, random)) nextTime_ = absences.end() + WorldTime(random.between(0, 200'000));
}

std::unique_ptr<WorldBeacon> makeWorldSensor(const BeaconWorldOptions& options, uint32_t index) {
  return std::make_unique<WorldSensor>(options, index);
}

std::unique_ptr<WorldBeacon> makeWorldIBeacon(const BeaconWorldOptions& options, uint32_t index) {
  return std::make_unique<WorldIBeacon>(options, index);
}

}  // namespace platform
