#include <utility>

#include "BrenloftSDK/SensorLog+CoreDataProperties.h"

std::optional<int64_t> SensorLogCoreDataProperties::battery() const {
  return stored<int64_t>({"battery", 0});
}
void SensorLogCoreDataProperties::setBattery(std::optional<int64_t> battery) {
  setStored(battery, {"battery", 0});
}

std::optional<std::string> SensorLogCoreDataProperties::beaconId() const {
  return stored<std::string>({"beaconId", 1});
}
void SensorLogCoreDataProperties::setBeaconId(std::optional<std::string> beaconId) {
  setStored(std::move(beaconId), {"beaconId", 1});
}

std::optional<int64_t> SensorLogCoreDataProperties::emergency() const {
  return stored<int64_t>({"emergency", 3});
}
void SensorLogCoreDataProperties::setEmergency(std::optional<int64_t> emergency) {
  setStored(emergency, {"emergency", 3});
}

std::optional<std::string> SensorLogCoreDataProperties::humidity() const {
  return stored<std::string>({"humidity", 4});
}
void SensorLogCoreDataProperties::setHumidity(std::optional<std::string> humidity) {
  setStored(std::move(humidity), {"humidity", 4});
}

std::optional<int64_t> SensorLogCoreDataProperties::major() const {
  return stored<int64_t>({"major", 5});
}
void SensorLogCoreDataProperties::setMajor(std::optional<int64_t> major) {
  setStored(major, {"major", 5});
}

std::optional<int64_t> SensorLogCoreDataProperties::minor() const {
  return stored<int64_t>({"minor", 6});
}
void SensorLogCoreDataProperties::setMinor(std::optional<int64_t> minor) {
  setStored(minor, {"minor", 6});
}

std::optional<int64_t> SensorLogCoreDataProperties::rssi() const {
  return stored<int64_t>({"rssi", 7});
}
void SensorLogCoreDataProperties::setRssi(std::optional<int64_t> rssi) {
  setStored(rssi, {"rssi", 7});
}

std::optional<int64_t> SensorLogCoreDataProperties::status() const {
  return stored<int64_t>({"status", 8});
}
void SensorLogCoreDataProperties::setStatus(std::optional<int64_t> status) {
  setStored(status, {"status", 8});
}

std::optional<std::string> SensorLogCoreDataProperties::tbd() const {
  return stored<std::string>({"tbd", 10});
}
void SensorLogCoreDataProperties::setTbd(std::optional<std::string> tbd) {
  setStored(std::move(tbd), {"tbd", 10});
}

std::optional<std::string> SensorLogCoreDataProperties::temperature() const {
  return stored<std::string>({"temperature", 11});
}
void SensorLogCoreDataProperties::setTemperature(std::optional<std::string> temperature) {
  setStored(std::move(temperature), {"temperature", 11});
}

std::optional<int64_t> SensorLogCoreDataProperties::txPower() const {
  return stored<int64_t>({"txPower", 12});
}
void SensorLogCoreDataProperties::setTxPower(std::optional<int64_t> txPower) {
  setStored(txPower, {"txPower", 12});
}

std::optional<std::string> SensorLogCoreDataProperties::uniqueId() const {
  return stored<std::string>({"uniqueId", 13});
}
void SensorLogCoreDataProperties::setUniqueId(std::optional<std::string> uniqueId) {
  setStored(std::move(uniqueId), {"uniqueId", 13});
}

std::optional<std::string> SensorLogCoreDataProperties::uuid() const {
  return stored<std::string>({"uuid", 14});
}
void SensorLogCoreDataProperties::setUuid(std::optional<std::string> uuid) {
  setStored(std::move(uuid), {"uuid", 14});
}

std::optional<std::string> SensorLogCoreDataProperties::xAccel() const {
  return stored<std::string>({"xAccel", 15});
}
void SensorLogCoreDataProperties::setXAccel(std::optional<std::string> xAccel) {
  setStored(std::move(xAccel), {"xAccel", 15});
}

std::optional<std::string> SensorLogCoreDataProperties::yAccel() const {
  return stored<std::string>({"yAccel", 16});
}
void SensorLogCoreDataProperties::setYAccel(std::optional<std::string> yAccel) {
  setStored(std::move(yAccel), {"yAccel", 16});
}

std::optional<std::string> SensorLogCoreDataProperties::zAccel() const {
  return stored<std::string>({"zAccel", 17});
}
void SensorLogCoreDataProperties::setZAccel(std::optional<std::string> zAccel) {
  setStored(std::move(zAccel), {"zAccel", 17});
}

// Kept by its bit pattern.
std::optional<uint64_t> SensorLogCoreDataProperties::beaconType() const {
  const auto value = stored<int64_t>({"beaconType", 2});
  return value ? std::optional(static_cast<uint64_t>(*value)) : std::nullopt;
}
void SensorLogCoreDataProperties::setBeaconType(std::optional<uint64_t> beaconType) {
  setStored(beaconType ? std::optional(static_cast<int64_t>(*beaconType)) : std::nullopt, {"beaconType", 2});
}

std::optional<platform::Date> SensorLogCoreDataProperties::statusUpdatedDate() const {
  const auto value = stored<double>({"statusUpdatedDate", 9});
  return value ? std::optional(platform::dateWithTimeIntervalSince1970(*value)) : std::nullopt;
}
void SensorLogCoreDataProperties::setStatusUpdatedDate(std::optional<platform::Date> statusUpdatedDate) {
  setStored(
      statusUpdatedDate ? std::optional(platform::timeIntervalSince1970(*statusUpdatedDate)) : std::nullopt,
      {"statusUpdatedDate", 9});
}
