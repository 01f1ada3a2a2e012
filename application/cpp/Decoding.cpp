#include "application/cpp/Decoding.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "platform/foundation/BeaconIdentifier.h"

namespace brenloft {
namespace {

constexpr double kHundredths = 100;

// A number that a frame can carry.
template <class Number>
Number fitted(double value, const char* what, double unit = 1) {
  using Limits = std::numeric_limits<Number>;
  if (value >= Limits::min() && value <= Limits::max()) return static_cast<Number>(value);
  throw std::invalid_argument(std::string("no frame can carry this ") + what + ": " +
                              std::to_string(value / unit));
}

// In hundredths; absent is 0.
template <class Number>
Number hundredthsOf(std::optional<double> value, const char* what) {
  return value ? fitted<Number>(std::round(*value * kHundredths), what, kHundredths) : Number{0};
}

}  // namespace

std::optional<Reading> Reading::decode(std::span<const std::byte> manufacturerData) {
  const auto frame = BRLSensorFrame::of(manufacturerData);
  if (!frame) return std::nullopt;
  Reading reading{.id = frame->uniqueId(),
                  .batteryPercent = static_cast<int>(frame->battery()),
                  .emergency = static_cast<int>(frame->emergency()),
                  .txPower = static_cast<int>(frame->txPower()),
                  .acceleration = {frame->xAcceleration(), frame->yAcceleration(), frame->zAcceleration()}};
  const int temperature = frame->temperatureInHundredths();
  const int humidity = frame->humidityInHundredths();
  if (temperature != 0 || humidity != 0) reading.temperatureCelsius = temperature / kHundredths;
  if (humidity != 0) reading.relativeHumidityPercent = humidity / kHundredths;
  return reading;
}

std::optional<Reading> readingIn(const platform::CBAdvertisementData& advertisement,
                                 const std::vector<platform::CBUUID>& services) {
  const auto& advertised = advertisement.serviceUUIDs;
  if (!advertisement.manufacturerData || !advertised || advertised->empty()) return std::nullopt;
  const auto isWanted = [&](const platform::CBUUID& service) {
    return std::ranges::find(services, service) != services.end();
  };
  if (!services.empty() && std::ranges::none_of(*advertised, isWanted)) return std::nullopt;
  auto reading = Reading::decode(*advertisement.manufacturerData);
  if (!reading) return std::nullopt;
  for (const auto& service : *advertised) reading->services.push_back(service.UUIDString());
  return reading;
}

bool hasSameFrame(const Reading& one, const Reading& other) {
  Reading copy = one;
  copy.time = other.time;
  copy.rssiDbm = other.rssiDbm;
  copy.services = other.services;
  return copy == other;
}

std::optional<Sighting> sightingIn(const platform::CBAdvertisementData& advertisement) {
  if (!advertisement.manufacturerData) return std::nullopt;
  const auto frame = platform::parseIBeaconFrame(*advertisement.manufacturerData);
  if (!frame) return std::nullopt;
  Sighting sighting{.uuid = frame->proximityUUID.UUIDString(),
                    .major = frame->major,
                    .minor = frame->minor,
                    .measuredPowerDbm = frame->measuredPower};
  sighting.id = platform::iBeaconIdentifier(sighting.uuid, sighting.major, sighting.minor);
  return sighting;
}

Result<std::string> beaconId(std::string_view typed) {
  if (auto id = platform::beaconIdentifierFrom(typed)) return *std::move(id);
  return Error{Error::Kind::unsupported, "no beacon has this id: " + std::string(typed)};
}

platform::BluetoothAddress addressOf(const Reading& reading) {
  std::string text = beaconId(reading.id).value_or("");
  std::ranges::replace(text, '-', ':');
  const auto address = platform::BluetoothAddress::fromText(text);
  if (!address) throw std::invalid_argument("no sensor has this id: " + reading.id);
  return *address;
}

platform::SensorFrame frameOf(const Reading& reading) {
  return {.temperature = hundredthsOf<int16_t>(reading.temperatureCelsius, "temperature"),
          .humidity = hundredthsOf<uint16_t>(reading.relativeHumidityPercent, "humidity"),
          .txPower = fitted<uint8_t>(reading.txPower, "txPower"),
          .battery = fitted<uint8_t>(reading.batteryPercent, "battery"),
          .emergency = fitted<uint8_t>(reading.emergency, "emergency"),
          .uniqueId = addressOf(reading).octets,
          .xAccel = fitted<int16_t>(reading.acceleration.x, "acceleration"),
          .yAccel = fitted<int16_t>(reading.acceleration.y, "acceleration"),
          .zAccel = fitted<int16_t>(reading.acceleration.z, "acceleration")};
}

platform::iBeaconFrame frameOf(const Sighting& sighting) {
  const auto uuid = platform::NSUUID::initWithUUIDString(sighting.uuid);
  if (!uuid) throw std::invalid_argument("no UUID: " + sighting.uuid);
  return {*uuid, sighting.major, sighting.minor, fitted<int8_t>(sighting.measuredPowerDbm, "measured power")};
}

}  // namespace brenloft
