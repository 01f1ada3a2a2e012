#include "gateway/ear/Ear.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"

namespace brenloft {
namespace {

// Bluetooth Core, Vol 6, Part B, 4.4.2.2.1: nobody advertises more often than this.
constexpr std::chrono::milliseconds kLeastInterval{20};
// More than are heard meanwhile. A capture may give all its records one time.
constexpr std::size_t kMostRecent = 10'000;
constexpr std::size_t kTxPower = 4;  // its octet in the frame

std::optional<int32_t> numberFrom(std::string_view text, int base = 10) {
  int32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<int32_t> integerFrom(const BRLOptionalText& text) {
  return text ? numberFrom(*text) : std::nullopt;
}

// "-0.01": two decimals always, or "".
std::optional<int32_t> hundredthsFrom(const BRLOptionalText& text) {
  if (!text) return std::nullopt;
  std::string digits = *text;
  digits.erase(std::remove(digits.begin(), digits.end(), '.'), digits.end());
  return numberFrom(digits);
}

Quantities quantitiesOf(const BRLBeaconSnapshot& record, std::optional<int32_t> txPower) {
  return {.temperature = hundredthsFrom(record.temperature),
          .humidity = hundredthsFrom(record.humidity),
          .battery = static_cast<int32_t>(record.battery),
          .emergency = static_cast<int32_t>(record.emergency),
          .txPower = txPower,
          .xAccel = integerFrom(record.xAccel),
          .yAccel = integerFrom(record.yAccel),
          .zAccel = integerFrom(record.zAccel)};
}

auto tied(const Quantities& quantities) {
  const auto& [temperature, humidity, battery, emergency, txPower, xAccel, yAccel, zAccel] = quantities;
  return std::tie(temperature, humidity, battery, emergency, txPower, xAccel, yAccel, zAccel);
}

}  // namespace

void Ear::bytes(const std::vector<std::string>& octets) {
  // The record keeps that of its first frame.
  const auto txPower = octets.size() > kTxPower ? numberFrom(octets[kTxPower], 16) : std::nullopt;
  advertisement_ = {std::this_thread::get_id(), txPower};
}

void Ear::beacon(const BRLBeaconDataModel& beacon) {
  if (!advertisement_ || advertisement_->thread != std::this_thread::get_id()) return;
  const auto txPower = std::exchange(advertisement_, std::nullopt)->txPower;
  const BRLBeaconSnapshot record = beacon.snapshot();
  if (record.beaconType != kBRLSensorBeacon || !record.uniqueId) return;
  const Quantities raw = quantitiesOf(record, txPower);
  Reading reading{
      .beacon = BeaconId::sensor(*record.uniqueId), .heard = dispatch_->date(), .raw = raw, .shown = raw};
  if (record.rssi != platform::AdvertisingReport::kNoRssi) reading.rssi = static_cast<int32_t>(record.rssi);
  if (!isDoubled(reading)) handler_(std::move(reading));
}

bool Ear::Report::operator<(const Report& other) const {
  if (const auto order = beacon <=> other.beacon; order != 0) return order < 0;
  return tied(raw) < tied(other.raw);
}

bool Ear::isDoubled(const Reading& reading) {
  const auto now = dispatch_->now();
  while (!times_.empty() && (now - times_.front().first >= kLeastInterval || times_.size() >= kMostRecent)) {
    recent_.erase(times_.front().second);
    times_.pop_front();
  }
  const auto [report, isNew] = recent_.insert({reading.beacon, reading.raw});
  if (isNew)
    times_.emplace_back(now, report);
  else
    ++doubled_;
  return !isNew;
}

void Ear::frame(const platform::iBeaconFrame& frame) {
  const std::scoped_lock lock(mutex_);
  frames_.emplace(frame.proximityUUID, frame.major, frame.minor);
}

std::set<BeaconId> Ear::takeFrames() {
  std::set<BeaconId> beacons;
  const std::scoped_lock lock(mutex_);
  for (const auto& [uuid, major, minor] : std::exchange(frames_, {}))
    beacons.insert(BeaconId::iBeacon(uuid.UUIDString(), major, minor));
  return beacons;
}

void Ear::ranged(const BRLRecordList& beacons) {
  const std::set<BeaconId> heard = takeFrames();
  std::size_t index = 0;
  for (const auto& beacon : beacons.view()) {
    if (ranged_.size() == index) ranged_.push_back(platform::Date::min());
    platform::Date& last = ranged_[index++];
    if (beacon->beaconType() != kBRLIBeacon) continue;
    const auto updated = beacon->statusUpdatedDate();
    if (!updated || std::exchange(last, *updated) == *updated) continue;
    Reading reading{
        .beacon = BeaconId::iBeacon(beacon->uuid().value_or(""), static_cast<uint16_t>(beacon->major()),
                                    static_cast<uint16_t>(beacon->minor())),
        .heard = dispatch_->date()};
    // A report holds for some seconds those that are silent, without a signal strength.
    if (beacon->rssi() != 0)
      reading.rssi = static_cast<int32_t>(beacon->rssi());
    else if (!heard.contains(reading.beacon))
      continue;
    handler_(std::move(reading));
  }
}

}  // namespace brenloft
