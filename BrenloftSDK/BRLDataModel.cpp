#include "BrenloftSDK/BRLDataModel.h"

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

using platform::Date;
using platform::Dictionary;
using platform::NSNull;
using platform::NSNumber;

// The decimal integer at the start of a text, stopped at the ends of 32 bits; 0 when there is none.
int32_t leadingInteger(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\n\v\f\r");
  if (begin == std::string_view::npos) return 0;
  text.remove_prefix(begin);
  const bool negative = text.front() == '-';
  if (negative || text.front() == '+') text.remove_prefix(1);
  constexpr int64_t kBeyond = int64_t{1} << 32;
  int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min(value * 10 + (c - '0'), kBeyond);
  }
  return static_cast<int32_t>(std::clamp<int64_t>(
      negative ? -value : value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

int64_t integerField(const Dictionary& dictionary, std::string_view key) {
  if (const auto* number = platform::find<NSNumber>(dictionary, key)) return number->intValue();
  if (const auto* text = platform::find<std::string>(dictionary, key)) return leadingInteger(*text);
  return 0;  // absent, or the null marker
}

BRLOptionalText textField(const Dictionary& dictionary, std::string_view key) {
  if (const auto* text = platform::find<std::string>(dictionary, key)) return *text;
  if (platform::find<NSNull>(dictionary, key) != nullptr) return "";
  return std::nullopt;
}

}  // namespace

BRLBeaconDataModel::BRLBeaconDataModel(const Dictionary* dictionary) {
  if (dictionary == nullptr) return;
  beaconType_ = static_cast<uint64_t>(integerField(*dictionary, "beaconType"));
  beaconId_ = textField(*dictionary, "beaconId");
  uuid_ = textField(*dictionary, "uuid");
  major_ = integerField(*dictionary, "major");
  minor_ = integerField(*dictionary, "minor");
  rssi_ = integerField(*dictionary, "rssi");
  txPower_ = integerField(*dictionary, "txPower");
  status_ = integerField(*dictionary, "status");
  if (const auto* date = platform::find<Date>(*dictionary, "statusUpdatedDate")) statusUpdatedDate_ = *date;
  if (const auto* text = platform::find<std::string>(*dictionary, "statusUpdatedDate")) {
    statusUpdatedDateText_ = *text;
  }
  emergency_ = integerField(*dictionary, "emergency");
  battery_ = integerField(*dictionary, "battery");
  temperature_ = textField(*dictionary, "temperature");
  humidity_ = textField(*dictionary, "humidity");
  uniqueId_ = textField(*dictionary, "uniqueId");
  tbd_ = textField(*dictionary, "tbd");
  xAccel_ = textField(*dictionary, "xAccel");
  yAccel_ = textField(*dictionary, "yAccel");
  zAccel_ = textField(*dictionary, "zAccel");
}

BRLOptionalText BRLBeaconDataModel::copyOf(const BRLOptionalText& text) const {
  const std::scoped_lock lock(mutex_);
  return text;
}

void BRLBeaconDataModel::replace(BRLOptionalText& text, BRLOptionalText value) {
  const std::scoped_lock lock(mutex_);
  text.swap(value);
}

BRLOptionalText BRLBeaconDataModel::beaconId() const {
  return copyOf(beaconId_);
}
BRLOptionalText BRLBeaconDataModel::temperature() const {
  return copyOf(temperature_);
}
BRLOptionalText BRLBeaconDataModel::humidity() const {
  return copyOf(humidity_);
}
BRLOptionalText BRLBeaconDataModel::uniqueId() const {
  return copyOf(uniqueId_);
}
BRLOptionalText BRLBeaconDataModel::tbd() const {
  return copyOf(tbd_);
}
BRLOptionalText BRLBeaconDataModel::xAccel() const {
  return copyOf(xAccel_);
}
BRLOptionalText BRLBeaconDataModel::yAccel() const {
  return copyOf(yAccel_);
}
BRLOptionalText BRLBeaconDataModel::zAccel() const {
  return copyOf(zAccel_);
}
BRLOptionalText BRLBeaconDataModel::statusUpdatedDateText() const {
  return copyOf(statusUpdatedDateText_);
}

std::optional<Date> BRLBeaconDataModel::statusUpdatedDate() const {
  const std::scoped_lock lock(mutex_);
  return statusUpdatedDate_;
}

BRLBeaconSnapshot BRLBeaconDataModel::snapshot() const {
  const std::scoped_lock lock(mutex_);
  return {
      .beaconType = beaconType_,
      .beaconId = beaconId_,
      .uuid = uuid_,
      .major = major_,
      .minor = minor_,
      .rssi = rssi(),
      .txPower = txPower_,
      .emergency = emergency(),
      .battery = battery(),
      .temperature = temperature_,
      .humidity = humidity_,
      .uniqueId = uniqueId_,
      .tbd = tbd_,
      .status = status(),
      .statusUpdatedDate = statusUpdatedDate_,
      .xAccel = xAccel_,
      .yAccel = yAccel_,
      .zAccel = zAccel_,
  };
}

void BRLBeaconDataModel::setStatusUpdatedDate(Date date) {
  const std::scoped_lock lock(mutex_);
  statusUpdatedDate_ = date;
  statusUpdatedDateText_.reset();
}

void BRLBeaconDataModel::setTemperature(BRLOptionalText temperature) {
  replace(temperature_, std::move(temperature));
}
void BRLBeaconDataModel::setHumidity(BRLOptionalText humidity) {
  replace(humidity_, std::move(humidity));
}
void BRLBeaconDataModel::setTbd(BRLOptionalText tbd) {
  replace(tbd_, std::move(tbd));
}
void BRLBeaconDataModel::setXAccel(BRLOptionalText xAccel) {
  replace(xAccel_, std::move(xAccel));
}
void BRLBeaconDataModel::setYAccel(BRLOptionalText yAccel) {
  replace(yAccel_, std::move(yAccel));
}
void BRLBeaconDataModel::setZAccel(BRLOptionalText zAccel) {
  replace(zAccel_, std::move(zAccel));
}

void BRLBeaconDataModel::setUniqueId(BRLOptionalText uniqueId) {
  const std::scoped_lock lock(mutex_);
  beaconId_ = uniqueId;
  uniqueId_ = std::move(uniqueId);
}

void BRLBeaconDataModel::refresh(Date date, int64_t rssi, const BRLSensorReadings& readings) {
  const std::scoped_lock lock(mutex_);
  statusUpdatedDate_ = date;
  statusUpdatedDateText_.reset();
  setRssiValue(rssi);
  setEmergency(readings.emergency);
  setBattery(readings.battery);
  temperature_ = readings.temperature;
  humidity_ = readings.humidity;
  uniqueId_ = readings.uniqueId;
  beaconId_ = readings.uniqueId;
  tbd_ = readings.tbd;
  xAccel_ = readings.xAccel;
  yAccel_ = readings.yAccel;
  zAccel_ = readings.zAccel;
}

bool BRLBeaconDataModel::markLost() {
  int64_t expected = kBRLPresent;
  return status_.compare_exchange_strong(expected, kBRLLost, std::memory_order_acq_rel);
}

bool BRLBeaconDataModel::markLostIfSilentSince(int64_t cutoff) {
  if (status() != kBRLPresent) return false;
  const std::scoped_lock lock(mutex_);
  // A record without a date was last heard at the beginning of time.
  const int64_t last = statusUpdatedDate_ ? platform::wholeSecondsSince1970(*statusUpdatedDate_) : 0;
  return last <= cutoff && markLost();
}

bool BRLBeaconDataModel::markPresent() {
  return status_.exchange(kBRLPresent, std::memory_order_acq_rel) != kBRLPresent;
}
