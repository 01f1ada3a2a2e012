#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/Value.h"

/// A text that may be absent; absent and "" are different.
using BRLOptionalText = std::optional<std::string>;

/// Values of beaconType; the same two select the search.
inline constexpr uint64_t kBRLSensorBeacon = 1;
inline constexpr uint64_t kBRLIBeacon = 2;
/// Values of status.
inline constexpr int64_t kBRLPresent = 1;
inline constexpr int64_t kBRLLost = 2;

/// All eighteen properties at one moment, in their declared order.
struct BRLBeaconSnapshot {
  uint64_t beaconType = 0;
  BRLOptionalText beaconId;
  BRLOptionalText uuid;
  int64_t major = 0;
  int64_t minor = 0;
  int64_t rssi = 0;
  int64_t txPower = 0;
  int64_t emergency = 0;
  int64_t battery = 0;
  BRLOptionalText temperature;
  BRLOptionalText humidity;
  BRLOptionalText uniqueId;
  BRLOptionalText tbd;
  int64_t status = 0;
  std::optional<platform::Date> statusUpdatedDate;
  BRLOptionalText xAccel;
  BRLOptionalText yAccel;
  BRLOptionalText zAccel;
};

/// The live record of one beacon, sensor or iBeacon.
///
/// Thread safety: every operation may be called from any thread.
///  1. beaconType, uuid, major, minor and txPower never change and are read without a lock.
///  2. rssi, status, emergency and battery are atomics.
///  3. Texts and the date are guarded by the record's own lock, which is never held over foreign code. A
///     reader gets a copy. Each mutator is one change; `setUniqueId` changes uniqueId and beaconId together.
class BRL_EXPORT BRLBeaconDataModel {
 public:
  BRLBeaconDataModel() = default;
  /// -[BRLBeaconDataModel initWithDictionary:]
  /// Keys are the names of the properties. Integers: the 32-bit value of a number or of the decimal integer
  /// at the start of a text, else 0. Texts: null marker is "", an absent key stays absent, a value of another
  /// kind counts as absent. A date is taken from a date; a date given as text stays readable by
  /// statusUpdatedDateText.
  explicit BRLBeaconDataModel(const platform::Dictionary* dictionary);
  explicit BRLBeaconDataModel(const platform::Dictionary& dictionary) : BRLBeaconDataModel(&dictionary) {}
  BRLBeaconDataModel(const BRLBeaconDataModel&) = delete;
  BRLBeaconDataModel& operator=(const BRLBeaconDataModel&) = delete;

  /// 1 = sensor beacon, 2 = iBeacon, 0 = not given.
  uint64_t beaconType() const { return beaconType_; }
  /// The device identifier of a sensor beacon, "iBeacon" for an iBeacon.
  BRLOptionalText beaconId() const;
  /// The text of the first service UUID, or of the proximity UUID.
  const BRLOptionalText& uuid() const { return uuid_; }
  int64_t major() const { return major_; }
  int64_t minor() const { return minor_; }
  /// dBm as the platform reported it.
  int64_t rssi() const { return rssi_.load(std::memory_order_relaxed); }
  /// 0 to 255, from the first frame only.
  int64_t txPower() const { return txPower_; }
  /// 1 or more signals an emergency.
  int64_t emergency() const { return emergency_.load(std::memory_order_relaxed); }
  int64_t battery() const { return battery_.load(std::memory_order_relaxed); }
  /// Two decimals; "" when the frame gave none.
  BRLOptionalText temperature() const;
  BRLOptionalText humidity() const;
  /// XX-XX-XX-XX-XX-XX
  BRLOptionalText uniqueId() const;
  /// Six hexadecimal digits.
  BRLOptionalText tbd() const;
  /// 1 = present, 2 = lost, 0 = not set.
  int64_t status() const { return status_.load(std::memory_order_acquire); }
  /// When the beacon was last heard.
  std::optional<platform::Date> statusUpdatedDate() const;
  /// The text that stood for the date in the dictionary, when it was given as a text.
  BRLOptionalText statusUpdatedDateText() const;
  /// Signed decimal integers.
  BRLOptionalText xAccel() const;
  BRLOptionalText yAccel() const;
  BRLOptionalText zAccel() const;

  /// Everything at one moment.
  BRLBeaconSnapshot snapshot() const;

  // -[BRLBeaconDataModel setStatusValue:] and the other mutators; each replaces one value.
  void setStatusValue(int64_t status) { status_.store(status, std::memory_order_release); }
  void setRssiValue(int64_t rssi) { rssi_.store(rssi, std::memory_order_relaxed); }
  void setStatusUpdatedDate(platform::Date date);
  void setEmergency(int64_t emergency) { emergency_.store(emergency, std::memory_order_relaxed); }
  void setBattery(int64_t battery) { battery_.store(battery, std::memory_order_relaxed); }
  void setTemperature(BRLOptionalText temperature);
  void setHumidity(BRLOptionalText humidity);
  /// Sets beaconId as well: the identity follows the identifier that was sent last.
  void setUniqueId(BRLOptionalText uniqueId);
  void setTbd(BRLOptionalText tbd);
  void setXAccel(BRLOptionalText xAccel);
  void setYAccel(BRLOptionalText yAccel);
  void setZAccel(BRLOptionalText zAccel);

  /// The date, the signal strength and the readings of one advertisement in one change; txPower stays.
  void refresh(platform::Date date, int64_t rssi, const BRLSensorReadings& readings);
  /// Status 1 becomes 2, any other stays, in one step. True when it did.
  bool markLost();
  /// The same, only if the record was last heard at `cutoff` (whole seconds since 1970) or before; one step
  /// against a concurrent `refresh`.
  bool markLostIfSilentSince(int64_t cutoff);
  /// Any status becomes 1, in one step. True when it was another one.
  bool markPresent();

 private:
  BRLOptionalText copyOf(const BRLOptionalText& text) const;
  void replace(BRLOptionalText& text, BRLOptionalText value);

  uint64_t beaconType_ = 0;
  BRLOptionalText uuid_;
  int64_t major_ = 0;
  int64_t minor_ = 0;
  int64_t txPower_ = 0;

  std::atomic<int64_t> rssi_{0};
  std::atomic<int64_t> status_{0};
  std::atomic<int64_t> emergency_{0};
  std::atomic<int64_t> battery_{0};

  mutable std::mutex mutex_;  // guards everything below
  BRLOptionalText beaconId_;
  BRLOptionalText temperature_;
  BRLOptionalText humidity_;
  BRLOptionalText uniqueId_;
  BRLOptionalText tbd_;
  std::optional<platform::Date> statusUpdatedDate_;
  BRLOptionalText statusUpdatedDateText_;
  BRLOptionalText xAccel_;
  BRLOptionalText yAccel_;
  BRLOptionalText zAccel_;
};
