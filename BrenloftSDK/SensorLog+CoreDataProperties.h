#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/coredata/NSManagedObject.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

/// The attributes of SensorLog, all optional, with the names and meanings of BRLBeaconDataModel's properties.
class BRL_EXPORT SensorLogCoreDataProperties : public platform::NSManagedObject {
 public:
  std::optional<int64_t> battery() const;
  void setBattery(std::optional<int64_t> battery);
  std::optional<std::string> beaconId() const;
  void setBeaconId(std::optional<std::string> beaconId);
  std::optional<uint64_t> beaconType() const;
  void setBeaconType(std::optional<uint64_t> beaconType);
  std::optional<int64_t> emergency() const;
  void setEmergency(std::optional<int64_t> emergency);
  std::optional<std::string> humidity() const;
  void setHumidity(std::optional<std::string> humidity);
  std::optional<int64_t> major() const;
  void setMajor(std::optional<int64_t> major);
  std::optional<int64_t> minor() const;
  void setMinor(std::optional<int64_t> minor);
  std::optional<int64_t> rssi() const;
  void setRssi(std::optional<int64_t> rssi);
  std::optional<int64_t> status() const;
  void setStatus(std::optional<int64_t> status);
  std::optional<platform::Date> statusUpdatedDate() const;
  void setStatusUpdatedDate(std::optional<platform::Date> statusUpdatedDate);
  std::optional<std::string> tbd() const;
  void setTbd(std::optional<std::string> tbd);
  std::optional<std::string> temperature() const;
  void setTemperature(std::optional<std::string> temperature);
  std::optional<int64_t> txPower() const;
  void setTxPower(std::optional<int64_t> txPower);
  std::optional<std::string> uniqueId() const;
  void setUniqueId(std::optional<std::string> uniqueId);
  std::optional<std::string> uuid() const;
  void setUuid(std::optional<std::string> uuid);
  std::optional<std::string> xAccel() const;
  void setXAccel(std::optional<std::string> xAccel);
  std::optional<std::string> yAccel() const;
  void setYAccel(std::optional<std::string> yAccel);
  std::optional<std::string> zAccel() const;
  void setZAccel(std::optional<std::string> zAccel);
};
