#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/coredata/NSManagedObject.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/TextArgument.h"

/// The attributes of SensorLog, all optional, with the names and meanings of BRLBeaconDataModel's properties.
class BRL_EXPORT SensorLogCoreDataProperties : public platform::NSManagedObject {
 public:
  // In the order of ServiceModel.model, with their places in it.
  std::optional<int64_t> battery() const { return stored<int64_t>({"battery", 0}); }
  void setBattery(std::optional<int64_t> battery) { setStored(battery, {"battery", 0}); }
  std::optional<std::string> beaconId() const { return stored<std::string>({"beaconId", 1}); }
  void setBeaconId(platform::TextArgument beaconId) { setStored(std::move(beaconId.text), {"beaconId", 1}); }
  /// Kept by its bit pattern.
  std::optional<uint64_t> beaconType() const {
    const auto value = stored<int64_t>({"beaconType", 2});
    return value ? std::optional(static_cast<uint64_t>(*value)) : std::nullopt;
  }
  void setBeaconType(std::optional<uint64_t> beaconType) {
    setStored(beaconType ? std::optional(static_cast<int64_t>(*beaconType)) : std::nullopt,
              {"beaconType", 2});
  }
  std::optional<int64_t> emergency() const { return stored<int64_t>({"emergency", 3}); }
  void setEmergency(std::optional<int64_t> emergency) { setStored(emergency, {"emergency", 3}); }
  std::optional<std::string> humidity() const { return stored<std::string>({"humidity", 4}); }
  void setHumidity(platform::TextArgument humidity) { setStored(std::move(humidity.text), {"humidity", 4}); }
  std::optional<int64_t> major() const { return stored<int64_t>({"major", 5}); }
  void setMajor(std::optional<int64_t> major) { setStored(major, {"major", 5}); }
  std::optional<int64_t> minor() const { return stored<int64_t>({"minor", 6}); }
  void setMinor(std::optional<int64_t> minor) { setStored(minor, {"minor", 6}); }
  std::optional<int64_t> rssi() const { return stored<int64_t>({"rssi", 7}); }
  void setRssi(std::optional<int64_t> rssi) { setStored(rssi, {"rssi", 7}); }
  std::optional<int64_t> status() const { return stored<int64_t>({"status", 8}); }
  void setStatus(std::optional<int64_t> status) { setStored(status, {"status", 8}); }
  std::optional<platform::Date> statusUpdatedDate() const {
    const auto value = stored<double>({"statusUpdatedDate", 9});
    return value ? std::optional(platform::dateWithTimeIntervalSince1970(*value)) : std::nullopt;
  }
  void setStatusUpdatedDate(std::optional<platform::Date> statusUpdatedDate) {
    setStored(
        statusUpdatedDate ? std::optional(platform::timeIntervalSince1970(*statusUpdatedDate)) : std::nullopt,
        {"statusUpdatedDate", 9});
  }
  std::optional<std::string> tbd() const { return stored<std::string>({"tbd", 10}); }
  void setTbd(platform::TextArgument tbd) { setStored(std::move(tbd.text), {"tbd", 10}); }
  std::optional<std::string> temperature() const { return stored<std::string>({"temperature", 11}); }
  void setTemperature(platform::TextArgument temperature) {
    setStored(std::move(temperature.text), {"temperature", 11});
  }
  std::optional<int64_t> txPower() const { return stored<int64_t>({"txPower", 12}); }
  void setTxPower(std::optional<int64_t> txPower) { setStored(txPower, {"txPower", 12}); }
  std::optional<std::string> uniqueId() const { return stored<std::string>({"uniqueId", 13}); }
  void setUniqueId(platform::TextArgument uniqueId) { setStored(std::move(uniqueId.text), {"uniqueId", 13}); }
  std::optional<std::string> uuid() const { return stored<std::string>({"uuid", 14}); }
  void setUuid(platform::TextArgument uuid) { setStored(std::move(uuid.text), {"uuid", 14}); }
  std::optional<std::string> xAccel() const { return stored<std::string>({"xAccel", 15}); }
  void setXAccel(platform::TextArgument xAccel) { setStored(std::move(xAccel.text), {"xAccel", 15}); }
  std::optional<std::string> yAccel() const { return stored<std::string>({"yAccel", 16}); }
  void setYAccel(platform::TextArgument yAccel) { setStored(std::move(yAccel.text), {"yAccel", 16}); }
  std::optional<std::string> zAccel() const { return stored<std::string>({"zAccel", 17}); }
  void setZAccel(platform::TextArgument zAccel) { setStored(std::move(zAccel.text), {"zAccel", 17}); }
};
