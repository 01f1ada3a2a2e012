#include "BrenloftSDK/BRLDataModel.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "BrenloftSDK/BRLLastHeard.h"
#include "BrenloftSDK/BRLProperties.h"

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

// How a property of each kind takes its value from a dictionary.

void take(int64_t& integer, const Dictionary& dictionary, std::string_view key) {
  if (const auto* number = platform::find<NSNumber>(dictionary, key))
    integer = number->intValue();
  else if (const auto* text = platform::find<std::string>(dictionary, key))
    integer = leadingInteger(*text);
}

void take(uint64_t& integer, const Dictionary& dictionary, std::string_view key) {
  int64_t value = 0;
  take(value, dictionary, key);
  integer = static_cast<uint64_t>(value);
}

void take(BRLOptionalText& text, const Dictionary& dictionary, std::string_view key) {
  if (const auto* given = platform::find<std::string>(dictionary, key))
    text = *given;
  else if (platform::find<NSNull>(dictionary, key) != nullptr)
    text = "";
}

void take(std::optional<Date>& date, const Dictionary& dictionary, std::string_view key) {
  if (const auto* given = platform::find<Date>(dictionary, key)) date = *given;
}

// What a frame says under each text, in their order.
constexpr std::array kFrameTexts{&BRLSensorFrame::uniqueId,    &BRLSensorFrame::uniqueId,
                                 &BRLSensorFrame::temperature, &BRLSensorFrame::humidity,
                                 &BRLSensorFrame::tbd,         &BRLSensorFrame::xAccel,
                                 &BRLSensorFrame::yAccel,      &BRLSensorFrame::zAccel};

}  // namespace

BRLBeaconDataModel::BRLBeaconDataModel(const Dictionary* dictionary) {
  if (dictionary == nullptr) return;
  BRLBeaconSnapshot given;
  BRLForEach(kBRLProperties,
             [&](const auto& property) { take(given.*property.member, *dictionary, property.name); });
  beaconType_ = static_cast<int32_t>(given.beaconType);
  uuid_ = std::move(given.uuid);
  major_ = static_cast<int32_t>(given.major);
  minor_ = static_cast<int32_t>(given.minor);
  txPower_ = static_cast<int32_t>(given.txPower);
  rssi_ = given.rssi;
  status_ = given.status;
  emergency_ = given.emergency;
  battery_ = given.battery;
  statusUpdatedDate_ = given.statusUpdatedDate;
  holdText(Text::beaconId, std::move(given.beaconId));
  holdText(Text::uniqueId, std::move(given.uniqueId));
  holdText(Text::temperature, std::move(given.temperature));
  holdText(Text::humidity, std::move(given.humidity));
  holdText(Text::tbd, std::move(given.tbd));
  holdText(Text::xAccel, std::move(given.xAccel));
  holdText(Text::yAccel, std::move(given.yAccel));
  holdText(Text::zAccel, std::move(given.zAccel));
  if (const auto* text = platform::find<std::string>(*dictionary, "statusUpdatedDate"))
    holdText(Text::statusUpdatedDate, *text);
}

// As a dictionary of the same would make it.
BRLBeaconDataModel::BRLBeaconDataModel(std::string uuid, Date heard, int64_t rssi,
                                       const BRLSensorFrame& frame)
    : beaconType_(static_cast<int32_t>(kBRLSensorBeacon)),
      txPower_(static_cast<int32_t>(frame.txPower())),
      uuid_(std::move(uuid)),
      rssi_(static_cast<int32_t>(rssi)),
      status_(kBRLPresent),
      emergency_(frame.emergency()),
      battery_(frame.battery()),
      statusUpdatedDate_(heard),
      frame_(frame) {}

BRLBeaconSnapshot BRLBeaconDataModel::snapshot() const {
  const std::scoped_lock lock(mutex_);
  return {.beaconType = beaconType(),
          .beaconId = heldText(Text::beaconId),
          .uuid = uuid_,
          .major = major_,
          .minor = minor_,
          .rssi = rssi(),
          .txPower = txPower_,
          .emergency = emergency(),
          .battery = battery(),
          .temperature = heldText(Text::temperature),
          .humidity = heldText(Text::humidity),
          .uniqueId = heldText(Text::uniqueId),
          .tbd = heldText(Text::tbd),
          .status = status(),
          .statusUpdatedDate = statusUpdatedDate_,
          .xAccel = heldText(Text::xAccel),
          .yAccel = heldText(Text::yAccel),
          .zAccel = heldText(Text::zAccel)};
}

std::optional<Date> BRLBeaconDataModel::statusUpdatedDate() const {
  const std::scoped_lock lock(mutex_);
  return statusUpdatedDate_;
}

BRLOptionalText BRLBeaconDataModel::text(Text which) const {
  const std::scoped_lock lock(mutex_);
  return heldText(which);
}

BRLOptionalText BRLBeaconDataModel::heldText(Text which) const {
  const auto place = static_cast<size_t>(which);
  if (frame_)
    return place < kFrameTexts.size() ? BRLOptionalText(((*frame_).*kFrameTexts[place])()) : std::nullopt;
  if (!texts_ || !(*texts_)[place]) return std::nullopt;
  return *(*texts_)[place];
}

void BRLBeaconDataModel::setText(Text which, BRLOptionalText text) {
  const std::scoped_lock lock(mutex_);
  holdText(which, std::move(text));
}

void BRLBeaconDataModel::holdText(Text which, BRLOptionalText text) {
  if (!text && !frame_ && !texts_) return;
  auto& held = ownTexts()[static_cast<size_t>(which)];
  held = text ? std::make_unique<const std::string>(std::move(*text)) : nullptr;
}

BRLBeaconDataModel::Texts& BRLBeaconDataModel::ownTexts() {
  if (texts_) return *texts_;
  texts_ = std::make_unique<Texts>();
  if (frame_) {
    for (size_t i = 0; i < kFrameTexts.size(); ++i)
      (*texts_)[i] = std::make_unique<const std::string>(((*frame_).*kFrameTexts[i])());
    frame_.reset();
  }
  return *texts_;
}

void BRLBeaconDataModel::setUniqueId(platform::TextArgument uniqueId) {
  const std::scoped_lock lock(mutex_);
  holdText(Text::beaconId, uniqueId.text);
  holdText(Text::uniqueId, std::move(uniqueId.text));
}

void BRLBeaconDataModel::setStatusValue(int64_t status) {
  status_.store(status, std::memory_order_release);
  if (status != kBRLPresent) return;
  const std::scoped_lock lock(mutex_);
  keepEntry();
}

void BRLBeaconDataModel::setStatusUpdatedDate(Date date) {
  const std::scoped_lock lock(mutex_);
  setDate(date);
}

void BRLBeaconDataModel::setDate(Date date) {
  statusUpdatedDate_ = date;
  if (texts_) (*texts_)[static_cast<size_t>(Text::statusUpdatedDate)].reset();
  keepEntry();
}

void BRLBeaconDataModel::refresh(Date date, int64_t rssi) {
  const std::scoped_lock lock(mutex_);
  setDate(date);
  setRssiValue(rssi);
}

void BRLBeaconDataModel::refresh(Date date, int64_t rssi, const BRLSensorFrame& frame) {
  const std::scoped_lock lock(mutex_);
  texts_.reset();
  frame_ = frame;
  setRssiValue(rssi);
  setEmergency(frame.emergency());
  setBattery(frame.battery());
  setDate(date);
}

bool BRLBeaconDataModel::markLost() {
  int64_t expected = kBRLPresent;
  return status_.compare_exchange_strong(expected, kBRLLost, std::memory_order_acq_rel);
}

bool BRLBeaconDataModel::markLostIfSilentSince(int64_t cutoff, int64_t second) {
  const std::scoped_lock lock(mutex_);
  if (second != entrySecond_) return false;
  entrySecond_ = kNoEntry;
  if (secondLastHeard() <= cutoff && markLost()) return true;
  keepEntry();
  return false;
}

bool BRLBeaconDataModel::markPresent() {
  if (status_.exchange(kBRLPresent, std::memory_order_acq_rel) == kBRLPresent) return false;
  const std::scoped_lock lock(mutex_);
  keepEntry();
  return true;
}

void BRLBeaconDataModel::enter(std::shared_ptr<BRLLastHeard> lastHeard, std::size_t number) {
  const std::scoped_lock lock(mutex_);
  lastHeard_ = std::move(lastHeard);
  number_ = number;
  keepEntry();
}

// A record without a date was last heard at the beginning of time.
int64_t BRLBeaconDataModel::secondLastHeard() const {
  return statusUpdatedDate_ ? platform::wholeSecondsSince1970(*statusUpdatedDate_) : 0;
}

// With the lock held, after whatever may have made the record present or its date earlier. The status is
// stored before the lock is taken, so that of two such changes the later one sees both.
void BRLBeaconDataModel::keepEntry() {
  const int64_t second = secondLastHeard();
  if (second >= entrySecond_ || !lastHeard_ || status() != kBRLPresent) return;
  entrySecond_ = second;
  lastHeard_->add({number_, second});
}
