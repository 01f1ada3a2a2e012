#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/TextArgument.h"
#include "platform/foundation/Value.h"

class BRLLastHeard;

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
  BRLOptionalText beaconId{};
  BRLOptionalText uuid{};
  int64_t major = 0;
  int64_t minor = 0;
  int64_t rssi = 0;
  int64_t txPower = 0;
  int64_t emergency = 0;
  int64_t battery = 0;
  BRLOptionalText temperature{};
  BRLOptionalText humidity{};
  BRLOptionalText uniqueId{};
  BRLOptionalText tbd{};
  int64_t status = 0;
  std::optional<platform::Date> statusUpdatedDate{};
  BRLOptionalText xAccel{};
  BRLOptionalText yAccel{};
  BRLOptionalText zAccel{};
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
  /// statusUpdatedDateText, one of any other kind counts as absent.
  explicit BRLBeaconDataModel(const platform::Dictionary* dictionary);
  explicit BRLBeaconDataModel(const platform::Dictionary& dictionary) : BRLBeaconDataModel(&dictionary) {}
  BRLBeaconDataModel(const BRLBeaconDataModel&) = delete;
  BRLBeaconDataModel& operator=(const BRLBeaconDataModel&) = delete;

  /// 1 = sensor beacon, 2 = iBeacon, 0 = not given.
  uint64_t beaconType() const { return values_.beaconType; }
  /// The device identifier of a sensor beacon, "iBeacon" for an iBeacon.
  BRLOptionalText beaconId() const { return copyOf(values_.beaconId); }
  /// The text of the first service UUID, or of the proximity UUID.
  const BRLOptionalText& uuid() const { return values_.uuid; }
  int64_t major() const { return values_.major; }
  int64_t minor() const { return values_.minor; }
  /// dBm as the platform reported it.
  int64_t rssi() const { return load(values_.rssi); }
  /// 0 to 255, from the first frame only.
  int64_t txPower() const { return values_.txPower; }
  /// 1 or more signals an emergency.
  int64_t emergency() const { return load(values_.emergency); }
  int64_t battery() const { return load(values_.battery); }
  /// Two decimals; "" when the frame gave none.
  BRLOptionalText temperature() const { return copyOf(values_.temperature); }
  BRLOptionalText humidity() const { return copyOf(values_.humidity); }
  /// XX-XX-XX-XX-XX-XX
  BRLOptionalText uniqueId() const { return copyOf(values_.uniqueId); }
  /// Six hexadecimal digits.
  BRLOptionalText tbd() const { return copyOf(values_.tbd); }
  /// 1 = present, 2 = lost, 0 = not set.
  int64_t status() const { return load(values_.status); }
  /// When the beacon was last heard.
  std::optional<platform::Date> statusUpdatedDate() const { return copyOf(values_.statusUpdatedDate); }
  /// The text that stood for the date in the dictionary, when it was given as a text.
  BRLOptionalText statusUpdatedDateText() const { return copyOf(statusUpdatedDateText_); }
  /// Signed decimal integers.
  BRLOptionalText xAccel() const { return copyOf(values_.xAccel); }
  BRLOptionalText yAccel() const { return copyOf(values_.yAccel); }
  BRLOptionalText zAccel() const { return copyOf(values_.zAccel); }

  /// Everything at one moment.
  BRLBeaconSnapshot snapshot() const;

  // -[BRLBeaconDataModel setStatusValue:] and the other mutators; each replaces one value.
  void setStatusValue(int64_t status);
  void setRssiValue(int64_t rssi) { store(values_.rssi, rssi); }
  void setStatusUpdatedDate(platform::Date date);
  void setEmergency(int64_t emergency) { store(values_.emergency, emergency); }
  void setBattery(int64_t battery) { store(values_.battery, battery); }
  void setTemperature(platform::TextArgument temperature) {
    replace(values_.temperature, std::move(temperature.text));
  }
  void setHumidity(platform::TextArgument humidity) { replace(values_.humidity, std::move(humidity.text)); }
  /// Sets beaconId as well: the identity follows the identifier that was sent last.
  void setUniqueId(platform::TextArgument uniqueId);
  void setTbd(platform::TextArgument tbd) { replace(values_.tbd, std::move(tbd.text)); }
  void setXAccel(platform::TextArgument xAccel) { replace(values_.xAccel, std::move(xAccel.text)); }
  void setYAccel(platform::TextArgument yAccel) { replace(values_.yAccel, std::move(yAccel.text)); }
  void setZAccel(platform::TextArgument zAccel) { replace(values_.zAccel, std::move(zAccel.text)); }

  /// The date, the signal strength and the readings of one advertisement in one change; txPower stays.
  void refresh(platform::Date date, int64_t rssi, const BRLSensorReadings& readings);
  /// Status 1 becomes 2, any other stays, in one step. True when it did.
  bool markLost();
  /// The same, only if the record was last heard at `cutoff` (whole seconds since 1970) or before; one step
  /// against a concurrent `refresh`. Asked for the entry at `second` that was taken out of the record's
  /// BRLLastHeard; while the record stays present it gets a new one.
  bool markLostIfSilentSince(int64_t cutoff, int64_t second);
  /// Any status becomes 1, in one step. True when it was another one.
  bool markPresent();

  /// From here on the record has an entry there while it is present, as the `number` of its list.
  void enter(std::shared_ptr<BRLLastHeard> lastHeard, std::size_t number);

 private:
  static constexpr int64_t kNoEntry = std::numeric_limits<int64_t>::max();

  int64_t secondLastHeard() const;
  void keepEntry();
  static int64_t load(int64_t& integer) { return std::atomic_ref(integer).load(std::memory_order_acquire); }
  static void store(int64_t& integer, int64_t value) {
    std::atomic_ref(integer).store(value, std::memory_order_release);
  }
  template <typename T>
  T copyOf(const T& value) const {
    const std::scoped_lock lock(mutex_);
    return value;
  }
  template <typename T>
  void replace(T& value, T by) {
    const std::scoped_lock lock(mutex_);
    std::swap(value, by);
  }

  mutable std::mutex mutex_;  // guards the texts, but for uuid, and the date
  // Mutable for std::atomic_ref only, which has no constant form.
  mutable BRLBeaconSnapshot values_;
  BRLOptionalText statusUpdatedDateText_;
  // Guarded by mutex_:
  std::shared_ptr<BRLLastHeard> lastHeard_;
  std::size_t number_ = 0;
  int64_t entrySecond_ = kNoEntry;
};
