#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/coredata/NSManagedObject.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

/// The attributes of SensorLog, all optional, with the names and meanings of BRLBeaconDataModel's properties.
class BRL_EXPORT SensorLogCoreDataProperties : public platform::NSManagedObject {
 public:
  std::optional<int64_t> battery() const { return stored<int64_t>({"battery"}); }
  void setBattery(std::optional<int64_t> battery) { setStored(battery, {"battery"}); }
  std::optional<std::string> beaconId() const { return stored<std::string>({"beaconId"}); }
  void setBeaconId(std::optional<std::string> beaconId) { setStored(std::move(beaconId), {"beaconId"}); }
  /// Kept by its bit pattern.
  std::optional<uint64_t> beaconType() const {
    const auto value = stored<int64_t>({"beaconType"});
    return value ? std::optional(static_cast<uint64_t>(*value)) : std::nullopt;
  }
  void setBeaconType(std::optional<uint64_t> beaconType) {
    setStored(beaconType ? std::optional(static_cast<int64_t>(*beaconType)) : std::nullopt, {"beaconType"});
  }
  std::optional<int64_t> emergency() const { return stored<int64_t>({"emergency"}); }
  void setEmergency(std::optional<int64_t> emergency) { setStored(emergency, {"emergency"}); }
  std::optional<std::string> humidity() const { return stored<std::string>({"humidity"}); }
  void setHumidity(std::optional<std::string> humidity) { setStored(std::move(humidity), {"humidity"}); }
  std::optional<int64_t> major() const { return stored<int64_t>({"major"}); }
  void setMajor(std::optional<int64_t> major) { setStored(major, {"major"}); }
  std::optional<int64_t> minor() const { return stored<int64_t>({"minor"}); }
  void setMinor(std::optional<int64_t> minor) { setStored(minor, {"minor"}); }
  std::optional<int64_t> rssi() const { return stored<int64_t>({"rssi"}); }
  void setRssi(std::optional<int64_t> rssi) { setStored(rssi, {"rssi"}); }
  std::optional<int64_t> status() const { return stored<int64_t>({"status"}); }
  void setStatus(std::optional<int64_t> status) { setStored(status, {"status"}); }
  std::optional<platform::Date> statusUpdatedDate() const {
    const auto value = stored<double>({"statusUpdatedDate"});
    return value ? std::optional(platform::dateWithTimeIntervalSince1970(*value)) : std::nullopt;
  }
  void setStatusUpdatedDate(std::optional<platform::Date> statusUpdatedDate) {
    setStored(
        statusUpdatedDate ? std::optional(platform::timeIntervalSince1970(*statusUpdatedDate)) : std::nullopt,
        {"statusUpdatedDate"});
  }
  std::optional<std::string> tbd() const { return stored<std::string>({"tbd"}); }
  void setTbd(std::optional<std::string> tbd) { setStored(std::move(tbd), {"tbd"}); }
  std::optional<std::string> temperature() const { return stored<std::string>({"temperature"}); }
  void setTemperature(std::optional<std::string> temperature) {
    setStored(std::move(temperature), {"temperature"});
  }
  std::optional<int64_t> txPower() const { return stored<int64_t>({"txPower"}); }
  void setTxPower(std::optional<int64_t> txPower) { setStored(txPower, {"txPower"}); }
  std::optional<std::string> uniqueId() const { return stored<std::string>({"uniqueId"}); }
  void setUniqueId(std::optional<std::string> uniqueId) { setStored(std::move(uniqueId), {"uniqueId"}); }
  std::optional<std::string> uuid() const { return stored<std::string>({"uuid"}); }
  void setUuid(std::optional<std::string> uuid) { setStored(std::move(uuid), {"uuid"}); }
  std::optional<std::string> xAccel() const { return stored<std::string>({"xAccel"}); }
  void setXAccel(std::optional<std::string> xAccel) { setStored(std::move(xAccel), {"xAccel"}); }
  std::optional<std::string> yAccel() const { return stored<std::string>({"yAccel"}); }
  void setYAccel(std::optional<std::string> yAccel) { setStored(std::move(yAccel), {"yAccel"}); }
  std::optional<std::string> zAccel() const { return stored<std::string>({"zAccel"}); }
  void setZAccel(std::optional<std::string> zAccel) { setStored(std::move(zAccel), {"zAccel"}); }
};
