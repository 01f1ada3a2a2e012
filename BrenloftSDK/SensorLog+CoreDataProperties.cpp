#include <utility>

#include "BrenloftSDK/SensorLog+CoreDataProperties.h"

std::optional<int64_t> SensorLogCoreDataProperties::battery() const {
  return stored<int64_t>("battery");
}
void SensorLogCoreDataProperties::setBattery(std::optional<int64_t> battery) {
  setStored(battery, "battery");
}

std::optional<std::string> SensorLogCoreDataProperties::beaconId() const {
  return stored<std::string>("beaconId");
}
void SensorLogCoreDataProperties::setBeaconId(std::optional<std::string> beaconId) {
  setStored(std::move(beaconId), "beaconId");
}

std::optional<int64_t> SensorLogCoreDataProperties::emergency() const {
  return stored<int64_t>("emergency");
}
void SensorLogCoreDataProperties::setEmergency(std::optional<int64_t> emergency) {
  setStored(emergency, "emergency");
}

std::optional<std::string> SensorLogCoreDataProperties::humidity() const {
  return stored<std::string>("humidity");
}
void SensorLogCoreDataProperties::setHumidity(std::optional<std::string> humidity) {
  setStored(std::move(humidity), "humidity");
}

std::optional<int64_t> SensorLogCoreDataProperties::major() const {
  return stored<int64_t>("major");
}
void SensorLogCoreDataProperties::setMajor(std::optional<int64_t> major) {
  setStored(major, "major");
}

std::optional<int64_t> SensorLogCoreDataProperties::minor() const {
  return stored<int64_t>("minor");
}
void SensorLogCoreDataProperties::setMinor(std::optional<int64_t> minor) {
  setStored(minor, "minor");
}

std::optional<int64_t> SensorLogCoreDataProperties::rssi() const {
  return stored<int64_t>("rssi");
}
void SensorLogCoreDataProperties::setRssi(std::optional<int64_t> rssi) {
  setStored(rssi, "rssi");
}

std::optional<int64_t> SensorLogCoreDataProperties::status() const {
  return stored<int64_t>("status");
}
void SensorLogCoreDataProperties::setStatus(std::optional<int64_t> status) {
  setStored(status, "status");
}

std::optional<std::string> SensorLogCoreDataProperties::tbd() const {
  return stored<std::string>("tbd");
}
void SensorLogCoreDataProperties::setTbd(std::optional<std::string> tbd) {
  setStored(std::move(tbd), "tbd");
}

std::optional<std::string> SensorLogCoreDataProperties::temperature() const {
  return stored<std::string>("temperature");
}
void SensorLogCoreDataProperties::setTemperature(std::optional<std::string> temperature) {
  setStored(std::move(temperature), "temperature");
}

std::optional<int64_t> SensorLogCoreDataProperties::txPower() const {
  return stored<int64_t>("txPower");
}
void SensorLogCoreDataProperties::setTxPower(std::optional<int64_t> txPower) {
  setStored(txPower, "txPower");
}

std::optional<std::string> SensorLogCoreDataProperties::uniqueId() const {
  return stored<std::string>("uniqueId");
}
void SensorLogCoreDataProperties::setUniqueId(std::optional<std::string> uniqueId) {
  setStored(std::move(uniqueId), "uniqueId");
}

std::optional<std::string> SensorLogCoreDataProperties::uuid() const {
  return stored<std::string>("uuid");
}
void SensorLogCoreDataProperties::setUuid(std::optional<std::string> uuid) {
  setStored(std::move(uuid), "uuid");
}

std::optional<std::string> SensorLogCoreDataProperties::xAccel() const {
  return stored<std::string>("xAccel");
}
void SensorLogCoreDataProperties::setXAccel(std::optional<std::string> xAccel) {
  setStored(std::move(xAccel), "xAccel");
}

std::optional<std::string> SensorLogCoreDataProperties::yAccel() const {
  return stored<std::string>("yAccel");
}
void SensorLogCoreDataProperties::setYAccel(std::optional<std::string> yAccel) {
  setStored(std::move(yAccel), "yAccel");
}

std::optional<std::string> SensorLogCoreDataProperties::zAccel() const {
  return stored<std::string>("zAccel");
}
void SensorLogCoreDataProperties::setZAccel(std::optional<std::string> zAccel) {
  setStored(std::move(zAccel), "zAccel");
}

// Kept by its bit pattern.
std::optional<uint64_t> SensorLogCoreDataProperties::beaconType() const {
  const auto value = stored<int64_t>("beaconType");
  return value ? std::optional(static_cast<uint64_t>(*value)) : std::nullopt;
}
void SensorLogCoreDataProperties::setBeaconType(std::optional<uint64_t> beaconType) {
  setStored(beaconType ? std::optional(static_cast<int64_t>(*beaconType)) : std::nullopt, "beaconType");
}

std::optional<platform::Date> SensorLogCoreDataProperties::statusUpdatedDate() const {
  const auto value = stored<double>("statusUpdatedDate");
  return value ? std::optional(platform::dateWithTimeIntervalSince1970(*value)) : std::nullopt;
}
void SensorLogCoreDataProperties::setStatusUpdatedDate(std::optional<platform::Date> statusUpdatedDate) {
  setStored(
      statusUpdatedDate ? std::optional(platform::timeIntervalSince1970(*statusUpdatedDate)) : std::nullopt,
      "statusUpdatedDate");
}
