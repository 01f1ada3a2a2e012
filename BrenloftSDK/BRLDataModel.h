#pragma once

#include <array>
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
#include "platform/foundation/Mutex.h"
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

  friend bool operator==(const BRLBeaconSnapshot&, const BRLBeaconSnapshot&) = default;
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
  /// Keys are the names of the properties. An integer is the 32-bit value of a number, or of the decimal
  /// integer at the start of a text, else 0. A text is "" for the null marker, and absent when its key is, or
  /// when the value is of another kind. The date is taken from a date; one given as text stays readable by
  /// `statusUpdatedDateText`; a value of another kind counts as absent.
  explicit BRLBeaconDataModel(const platform::Dictionary* dictionary);
  explicit BRLBeaconDataModel(const platform::Dictionary& dictionary) : BRLBeaconDataModel(&dictionary) {}
  BRLBeaconDataModel(const BRLBeaconDataModel&) = delete;
  BRLBeaconDataModel& operator=(const BRLBeaconDataModel&) = delete;

  /// A sensor beacon that has just been heard for the first time.
  BRLBeaconDataModel(std::string uuid, platform::Date heard, int64_t rssi, const BRLSensorFrame& frame);

  /// 1 = sensor beacon, 2 = iBeacon, 0 = not given.
  uint64_t beaconType() const { return static_cast<uint64_t>(int64_t{beaconType_}); }
  /// The device identifier of a sensor beacon, "iBeacon" for an iBeacon.
  BRLOptionalText beaconId() const { return text(Text::beaconId); }
  /// The text of the first service UUID, or of the proximity UUID.
  const BRLOptionalText& uuid() const { return uuid_; }
  int64_t major() const { return major_; }
  int64_t minor() const { return minor_; }
  /// dBm, as the platform reported it.
  int64_t rssi() const { return rssi_.load(std::memory_order_acquire); }
  /// 0 to 255, from the first frame only.
  int64_t txPower() const { return txPower_; }
  /// 0 to 255, as the battery is; 1 or more signals an emergency.
  int64_t emergency() const { return emergency_.load(std::memory_order_acquire); }
  int64_t battery() const { return battery_.load(std::memory_order_acquire); }
  /// Two decimals, in the beacon's unit (degrees Celsius and percent); "" when the frame gave none.
  BRLOptionalText temperature() const { return text(Text::temperature); }
  BRLOptionalText humidity() const { return text(Text::humidity); }
  /// XX-XX-XX-XX-XX-XX
  BRLOptionalText uniqueId() const { return text(Text::uniqueId); }
  /// Six hexadecimal digits.
  BRLOptionalText tbd() const { return text(Text::tbd); }
  /// 1 = present, 2 = lost, 0 = not set.
  int64_t status() const { return status_.load(std::memory_order_acquire); }
  /// When the beacon was last heard.
  std::optional<platform::Date> statusUpdatedDate() const;
  /// The date's text, when the dictionary had a text for it.
  BRLOptionalText statusUpdatedDateText() const { return text(Text::statusUpdatedDate); }
  /// Signed decimal integers.
  BRLOptionalText xAccel() const { return text(Text::xAccel); }
  BRLOptionalText yAccel() const { return text(Text::yAccel); }
  BRLOptionalText zAccel() const { return text(Text::zAccel); }

  /// Everything at one moment.
  BRLBeaconSnapshot snapshot() const;

  // -[BRLBeaconDataModel setStatusValue:] and the other mutators; each replaces one value.
  void setStatusValue(int64_t status);
  void setRssiValue(int64_t rssi) { rssi_.store(rssi, std::memory_order_release); }
  void setStatusUpdatedDate(platform::Date date);
  void setEmergency(int64_t emergency) { emergency_.store(emergency, std::memory_order_release); }
  void setBattery(int64_t battery) { battery_.store(battery, std::memory_order_release); }
  void setTemperature(platform::TextArgument temperature) {
    setText(Text::temperature, std::move(temperature.text));
  }
  void setHumidity(platform::TextArgument humidity) { setText(Text::humidity, std::move(humidity.text)); }
  /// Sets beaconId as well: the identity follows the identifier that was sent last.
  void setUniqueId(platform::TextArgument uniqueId);
  void setTbd(platform::TextArgument tbd) { setText(Text::tbd, std::move(tbd.text)); }
  void setXAccel(platform::TextArgument xAccel) { setText(Text::xAccel, std::move(xAccel.text)); }
  void setYAccel(platform::TextArgument yAccel) { setText(Text::yAccel, std::move(yAccel.text)); }
  void setZAccel(platform::TextArgument zAccel) { setText(Text::zAccel, std::move(zAccel.text)); }

  /// The date, the signal strength and the readings of one advertisement in one change; txPower stays.
  void refresh(platform::Date date, int64_t rssi, const BRLSensorFrame& frame);
  /// The date and the signal strength in one change.
  void refresh(platform::Date date, int64_t rssi);
  /// A status of 1 becomes 2, any other stays, in one step. True when it became 2.
  bool markLost();
  /// The same, but only when the record was last heard at `cutoff` (whole seconds since 1970) or before. No
  /// `refresh` comes in between. Call it for the entry at `second` that was taken out of the record's
  /// BRLLastHeard; a record that stays present gets a new entry.
  bool markLostIfSilentSince(int64_t cutoff, int64_t second);
  /// The status becomes 1, in one step. True when it was another one.
  bool markPresent();

  /// From here on the record has an entry there while it is present, as the `number` of its list.
  void enter(std::shared_ptr<BRLLastHeard> lastHeard, std::size_t number);

 private:
  enum class Text {
    beaconId,
    uniqueId,
    temperature,
    humidity,
    tbd,
    xAccel,
    yAccel,
    zAccel,
    statusUpdatedDate,
  };
  static constexpr std::size_t kTexts = 9;
  using Texts = std::array<std::unique_ptr<const std::string>, kTexts>;
  static constexpr int64_t kNoEntry = std::numeric_limits<int64_t>::max();

  BRLOptionalText text(Text which) const;
  void setText(Text which, BRLOptionalText text);
  // With the lock held:
  BRLOptionalText heldText(Text which) const;
  void holdText(Text which, BRLOptionalText text);
  Texts& ownTexts();
  void setDate(platform::Date date);
  int64_t secondLastHeard() const;
  void keepEntry();

  int32_t beaconType_ = 0;
  int32_t major_ = 0;
  int32_t minor_ = 0;
  int32_t txPower_ = 0;
  BRLOptionalText uuid_;
  std::atomic<int64_t> rssi_{0};
  std::atomic<int64_t> status_{0};
  std::atomic<int64_t> emergency_{0};
  std::atomic<int64_t> battery_{0};

  mutable platform::Mutex mutex_;  // guards what follows
  std::optional<platform::Date> statusUpdatedDate_;
  // The texts are those of the last frame or, once one of them was set or given, all written out.
  std::optional<BRLSensorFrame> frame_;
  std::unique_ptr<Texts> texts_;
  std::shared_ptr<BRLLastHeard> lastHeard_;
  std::size_t number_ = 0;
  int64_t entrySecond_ = kNoEntry;
};
