#include "BrenloftSDK/BRLDataModel.h"

#include <algorithm>
#include <limits>
#include <tuple>
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

// Integers are read and changed without the record's lock.

static_assert(std::atomic_ref<int64_t>::required_alignment <= alignof(BRLBeaconSnapshot));

int64_t current(int64_t& integer) {
  return std::atomic_ref(integer).load(std::memory_order_acquire);
}
template <typename T>
const T& current(const T& value) {
  return value;
}

void refresh(int64_t& integer, uint32_t value) {
  std::atomic_ref(integer).store(value, std::memory_order_relaxed);
}
void refresh(BRLOptionalText& text, const std::string& value) {
  text = value;
}

}  // namespace

BRLBeaconDataModel::BRLBeaconDataModel(const Dictionary* dictionary) {
  if (dictionary == nullptr) return;
  BRLForEach(kBRLProperties,
             [&](const auto& property) { take(values_.*property.member, *dictionary, property.name); });
  if (const auto* text = platform::find<std::string>(*dictionary, "statusUpdatedDate")) {
    statusUpdatedDateText_ = *text;
  }
}

BRLBeaconSnapshot BRLBeaconDataModel::snapshot() const {
  const std::scoped_lock lock(mutex_);
  // The table has the order of the members.
  const auto copied = [&](const auto&... property) {
    return BRLBeaconSnapshot{current(values_.*property.member)...};
  };
  return std::apply(copied, kBRLProperties);
}

void BRLBeaconDataModel::setStatusValue(int64_t status) {
  store(values_.status, status);
  if (status != kBRLPresent) return;
  const std::scoped_lock lock(mutex_);
  keepEntry();
}

void BRLBeaconDataModel::setStatusUpdatedDate(Date date) {
  const std::scoped_lock lock(mutex_);
  values_.statusUpdatedDate = date;
  statusUpdatedDateText_.reset();
  keepEntry();
}

void BRLBeaconDataModel::setUniqueId(platform::TextArgument uniqueId) {
  const std::scoped_lock lock(mutex_);
  values_.beaconId = uniqueId.text;
  values_.uniqueId = std::move(uniqueId.text);
}

void BRLBeaconDataModel::refresh(Date date, int64_t rssi, const BRLSensorReadings& readings) {
  const std::scoped_lock lock(mutex_);
  values_.statusUpdatedDate = date;
  statusUpdatedDateText_.reset();
  setRssiValue(rssi);
  values_.beaconId = readings.uniqueId;
  BRLForEach(kBRLReadings, [&](const auto& reading) {
    if (!reading.isFixed) ::refresh(values_.*reading.property, readings.*reading.member);
  });
  keepEntry();
}

bool BRLBeaconDataModel::markLost() {
  int64_t expected = kBRLPresent;
  return std::atomic_ref(values_.status)
      .compare_exchange_strong(expected, kBRLLost, std::memory_order_acq_rel);
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
  if (std::atomic_ref(values_.status).exchange(kBRLPresent, std::memory_order_acq_rel) == kBRLPresent)
    return false;
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
  return values_.statusUpdatedDate ? platform::wholeSecondsSince1970(*values_.statusUpdatedDate) : 0;
}

// With the lock held, after whatever may have made the record present or its date earlier. The status is
// stored before the lock is taken, so that of two such changes the later one sees both.
void BRLBeaconDataModel::keepEntry() {
  const int64_t second = secondLastHeard();
  if (second >= entrySecond_ || !lastHeard_ || status() != kBRLPresent) return;
  entrySecond_ = second;
  lastHeard_->add({number_, second});
}
