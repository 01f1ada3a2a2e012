#include "application/cpp/Air.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "application/cpp/Decoding.h"
#include "platform/bluetooth/RadioService.h"

namespace brenloft {
namespace {

using platform::SimulatedAdvertisement;

const platform::CBUUID kService = platform::CBUUID::fromShort(0xA001);  // of a reading that names none

int8_t rssiOf(std::optional<int> dBm) {
  constexpr int8_t kNone = platform::AdvertisingReport::kNoRssi;
  if (!dBm) return kNone;
  if (*dBm >= std::numeric_limits<int8_t>::min() && *dBm < kNone) return static_cast<int8_t>(*dBm);
  throw std::invalid_argument("no radio measures this rssi: " + std::to_string(*dBm));
}

std::vector<platform::CBUUID> servicesOf(const Reading& reading) {
  if (reading.services.empty()) return {kService};
  std::vector<platform::CBUUID> services;
  for (const std::string& text : reading.services) {
    const auto uuid = platform::CBUUID::UUIDWithString(text);
    if (!uuid) throw std::invalid_argument("not a service UUID: " + text);
    services.push_back(*uuid);
  }
  return services;
}

SimulatedAdvertisement packetOf(const Reading& reading) {
  auto services = servicesOf(reading);
  auto packet = platform::sensorAdvertisement(addressOf(reading), services.front(), frameOf(reading),
                                              rssiOf(reading.rssiDbm));
  packet.serviceUUIDs = std::move(services);
  return packet;
}

// Each beacon from an address of its own.
SimulatedAdvertisement packetOf(const Sighting& sighting) {
  const auto octet = [](int number) { return static_cast<uint8_t>(number & 0xFF); };
  const platform::BluetoothAddress address{
      .octets = {0xC0, 0xBE, octet(sighting.major >> 8), octet(sighting.major), octet(sighting.minor >> 8),
                 octet(sighting.minor)},
      .isRandom = true};
  return platform::iBeaconAdvertisement(address, frameOf(sighting), rssiOf(sighting.rssiDbm));
}

}  // namespace

// Beyond the next centuries neither the clock nor dates can be counted.
constexpr std::chrono::hours kLongestStep = std::chrono::days(36'500);

Air::Air(Time start)
    : clock_(platform::VirtualDispatch::make(start)),
      radio_(platform::SimulatedRadio::make(clock_)),
      states_(std::make_shared<RadioStates>()),
      bluetooth_(platform::RadioService::make(RadioStates::noting(radio_, states_), clock_)) {}

void Air::sendPacket(const SimulatedAdvertisement& packet) {
  clock_->runDue();  // whatever was asked for before is in force
  radio_->advertise(packet);
  clock_->runDue();
}

int Air::repeatPacket(SimulatedAdvertisement packet, std::chrono::milliseconds interval) {
  if (interval <= interval.zero()) throw std::invalid_argument("an interval is longer than nothing");
  clock_->runDue();
  const int number = radio_->startAdvertising(std::move(packet),
                                              std::min<std::chrono::milliseconds>(interval, kLongestStep));
  clock_->runDue();
  return number;
}

void Air::send(const Reading& reading) {
  sendPacket(packetOf(reading));
}
void Air::send(const Sighting& sighting) {
  sendPacket(packetOf(sighting));
}
int Air::repeat(const Reading& reading, std::chrono::milliseconds interval) {
  return repeatPacket(packetOf(reading), interval);
}
int Air::repeat(const Sighting& sighting, std::chrono::milliseconds interval) {
  return repeatPacket(packetOf(sighting), interval);
}
void Air::silence(int number) {
  radio_->stopAdvertising(number);
}

void Air::setRadio(RadioState state, std::string reason) {
  clock_->runDue();  // the state before is told first
  radio_->setState(static_cast<platform::CBManagerState>(state), std::move(reason));
  clock_->runDue();
}

void Air::advance(std::chrono::microseconds duration) {
  if (duration < duration.zero()) throw std::invalid_argument("time does not go back");
  if (duration > kLongestStep) throw std::invalid_argument("the clock goes 100 years at a time at the most");
  clock_->advance(duration);
}

Time Air::now() const {
  return clock_->date();
}

Hearing Air::hearing() {
  return {.dispatch = clock_, .bluetooth = bluetooth_, .states = states_, .isOfTest = true};
}

std::shared_ptr<SimulatedAir> SimulatedAir::make(Time start) {
  return std::make_shared<Air>(start);
}

}  // namespace brenloft
