#include "fuzz/LocationModel.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace fuzz {
namespace {

using platform::CLAuthorizationStatus;
using platform::CLBeaconRegion;
using platform::CLBeaconRegionPtr;
using platform::CLRegionState;
using platform::iBeaconFrame;
using namespace std::chrono_literals;

constexpr std::size_t kMostRegions = 20;
constexpr auto kSilence = 30s;
constexpr auto kRangingMemory = 10s;
constexpr auto kRangingPeriod = 1s;

bool matches(const CLBeaconRegion& region, const iBeaconFrame& frame) {
  return region.proximityUUID() == frame.proximityUUID &&
         region.major().value_or(frame.major) == frame.major &&
         region.minor().value_or(frame.minor) == frame.minor;
}

bool isSameBeacon(const iBeaconFrame& a, const iBeaconFrame& b) {
  return std::tie(a.proximityUUID, a.major, a.minor) == std::tie(b.proximityUUID, b.major, b.minor);
}

std::string lineOf(CLRegionState state, const CLBeaconRegion& region) {
  const char* name = state == CLRegionState::inside    ? "inside "
                     : state == CLRegionState::outside ? "outside "
                                                       : "unknown ";
  return name + region.identifier();
}

}  // namespace

// ---- Operations

void LocationModel::addManager(std::size_t manager) {
  managers_[manager].isThere = true;
  pending_.push_back({manager, "authorization " + std::to_string(static_cast<int>(authorization_)), true});
}

void LocationModel::removeManager(std::size_t manager) {
  managers_[manager] = {};
  std::erase_if(pending_, [&](const Pending& one) { return one.manager == manager; });
  forgetUnwanted();
}

void LocationModel::startMonitoring(std::size_t manager, const CLBeaconRegionPtr& region) {
  const bool isReplacement = known_.contains(region->identifier());
  if (!isReplacement && monitored_.size() == kMostRegions) {
    pending_.push_back({manager, "failed " + region->identifier() + " 5"});
    return;
  }
  if (!isMonitored(region)) {
    // At once: the UUID of both stays wanted.
    std::erase_if(monitored_, [&](const auto& other) { return other->identifier() == region->identifier(); });
    monitored_.push_back(region);
    known_[region->identifier()] = CLRegionState::unknown;
    forgetUnwanted();
  }
  pending_.push_back({manager, "started " + region->identifier(), false, region});
}

void LocationModel::stopMonitoring(const CLBeaconRegionPtr& region) {
  std::erase_if(monitored_, [&](const auto& other) { return other->identifier() == region->identifier(); });
  known_.erase(region->identifier());
  forgetUnwanted();
}

void LocationModel::requestState(std::size_t manager, const CLBeaconRegionPtr& region) {
  CLRegionState state = evaluate(*region);
  if (state == CLRegionState::unknown && isMonitored(region)) state = known_[region->identifier()];
  pending_.push_back({manager, lineOf(state, *region), false, isMonitored(region) ? region : nullptr});
}

void LocationModel::startRanging(std::size_t manager, const CLBeaconRegionPtr& region) {
  auto& ranged = managers_[manager].ranged;
  std::erase_if(ranged, [&](const auto& other) {
    return other->identifier() == region->identifier() && other->proximityUUID() == region->proximityUUID();
  });
  ranged.push_back(region);
}

void LocationModel::stopRanging(std::size_t manager, const CLBeaconRegionPtr& region) {
  std::erase_if(managers_[manager].ranged, [&](const auto& other) {
    return other->identifier() == region->identifier() || other->proximityUUID() == region->proximityUUID();
  });
  forgetUnwanted();
}

void LocationModel::setAuthorization(CLAuthorizationStatus status) {
  if (status == authorization_) return;
  authorization_ = status;
  if (!isAllowed()) forget();
  for (std::size_t i = 0; i < kManagers; ++i)
    if (managers_[i].isThere)
      pending_.push_back({i, "authorization " + std::to_string(static_cast<int>(status)), true});
}

void LocationModel::requestAuthorization() {
  if (authorization_ == CLAuthorizationStatus::notDetermined)
    setAuthorization(answer_.value_or(authorization_));
}

void LocationModel::setEnabled(bool isEnabled) {
  isEnabled_ = isEnabled;
  if (!isAllowed()) forget();
}

// ---- What is known

bool LocationModel::isAllowed() const {
  return isEnabled_ && (authorization_ == CLAuthorizationStatus::authorizedAlways ||
                        authorization_ == CLAuthorizationStatus::authorizedWhenInUse);
}

bool LocationModel::isMonitored(const CLBeaconRegionPtr& region) const {
  return std::ranges::find(monitored_, region) != monitored_.end();
}

bool LocationModel::isRanging() const {
  return std::ranges::any_of(managers_, [](const Manager& manager) { return !manager.ranged.empty(); });
}

std::set<platform::NSUUID> LocationModel::wanted() const {
  std::set<platform::NSUUID> uuids;
  for (const auto& region : monitored_) uuids.insert(region->proximityUUID());
  for (const Manager& manager : managers_)
    for (const auto& region : manager.ranged) uuids.insert(region->proximityUUID());
  return uuids;
}

void LocationModel::forget() {
  frames_.clear();
  wantedSince_.clear();
  listeningSince_.reset();
  for (auto& [identifier, state] : known_) state = CLRegionState::unknown;
}

void LocationModel::forgetUnwanted() {
  const auto uuids = wanted();
  std::erase_if(frames_, [&](const Frame& one) { return !uuids.contains(one.frame.proximityUUID); });
  std::erase_if(wantedSince_, [&](const auto& entry) { return !uuids.contains(entry.first); });
}

CLRegionState LocationModel::evaluate(const CLBeaconRegion& region) const {
  for (const Frame& one : frames_)
    if (matches(region, one.frame)) return CLRegionState::inside;
  const auto since = wantedSince_.find(region.proximityUUID());
  if (!listeningSince_ || since == wantedSince_.end()) return CLRegionState::unknown;
  const Time silence = now_ - std::max(*listeningSince_, since->second);
  return silence >= kSilence ? CLRegionState::outside : CLRegionState::unknown;
}

LocationModel::Time LocationModel::lastHeard(const iBeaconFrame& frame) const {
  Time last{};
  for (const Frame& one : frames_)
    if (isSameBeacon(one.frame, frame)) last = one.time;
  return last;
}

// ---- What follows

void LocationModel::settle() {
  for (const Pending& one : std::exchange(pending_, {})) {
    if (one.whileMonitored && !isMonitored(one.whileMonitored)) continue;
    if (one.isAboutAuthorization || isAllowed()) managers_[one.manager].lines.push_back(one.line);
  }
  listen();
  look();
}

void LocationModel::listen() {
  if (!isAllowed() || !isRadioOn_ || wanted().empty())
    listeningSince_.reset();
  else if (!listeningSince_)
    listeningSince_ = now_;
  if (listeningSince_)
    for (const platform::NSUUID& uuid : wanted()) wantedSince_.try_emplace(uuid, now_);
  if (!isAllowed() || !isRanging()) {
    nextRanging_.reset();
  } else if (!nextRanging_) {
    nextRanging_ = now_ + kRangingPeriod;
    ++second_;
  }
}

void LocationModel::hear(const iBeaconFrame& frame, std::optional<int> rssi) {
  if (!listeningSince_ || !wanted().contains(frame.proximityUUID)) return;
  frames_.push_back({now_, second_, frame, rssi});
  look();
}

void LocationModel::advance(std::chrono::milliseconds duration) {
  for (const Time end = now_ + duration; now_ < end;) {
    now_ += kStep;
    look();
  }
}

void LocationModel::skip(std::chrono::milliseconds duration) {
  now_ += duration;
  look();
}

void LocationModel::look() {
  lookAtStates();
  if (!nextRanging_ || now_ < *nextRanging_) return;
  range();
  ++second_;
  while (*nextRanging_ <= now_) *nextRanging_ += kRangingPeriod;
}

void LocationModel::lookAtStates() {
  if (listeningSince_) {
    std::vector<Frame> kept;
    for (const Frame& one : frames_)
      if (now_ - std::max(lastHeard(one.frame), *listeningSince_) < kSilence) kept.push_back(one);
    frames_ = std::move(kept);
  }
  for (const auto& region : monitored_) {
    const CLRegionState state = evaluate(*region);
    const CLRegionState before = known_[region->identifier()];
    if (state == before || state == CLRegionState::unknown) continue;
    known_[region->identifier()] = state;
    const bool isEntry = state == CLRegionState::inside;
    const bool isFirst = before == CLRegionState::unknown;
    if (!isFirst && !(isEntry ? region->notifyOnEntry() : region->notifyOnExit())) continue;
    tell(lineOf(state, *region));
    if (!isFirst) tell((isEntry ? "entered " : "exited ") + region->identifier());
  }
}

void LocationModel::range() {
  for (Manager& manager : managers_)
    for (const auto& region : manager.ranged) manager.lines.push_back(rangingLine(*region));
}

std::string LocationModel::rangingLine(const CLBeaconRegion& region) const {
  // Not measured, path loss, major, minor, strength.
  std::set<std::tuple<bool, long, uint16_t, uint16_t, long>> beacons;
  for (const Frame& one : frames_) {
    if (!matches(region, one.frame) || now_ - lastHeard(one.frame) >= kRangingMemory) continue;
    int sum = 0;
    int count = 0;
    int power = 0;
    for (const Frame& other : frames_) {
      if (!isSameBeacon(one.frame, other.frame)) continue;
      power = other.frame.measuredPower;  // NOLINT(bugprone-signed-char-misuse): a number
      if (other.second != second_ || !other.rssi) continue;
      sum = sum + *other.rssi;
      ++count;
    }
    const long mean = count == 0 ? 0 : std::lround(static_cast<double>(sum) / count);
    beacons.insert({count == 0, count == 0 ? 0 : power - mean, one.frame.major, one.frame.minor, mean});
  }
  std::string line = "ranged " + region.identifier() + ":";
  for (const auto& [isUnmeasured, loss, major, minor, rssi] : beacons)
    line += " " + std::to_string(major) + "/" + std::to_string(minor) + "=" + std::to_string(rssi);
  return line;
}

void LocationModel::tell(const std::string& line) {
  for (Manager& manager : managers_)
    if (manager.isThere) manager.lines.push_back(line);
}

LocationModel::Lines LocationModel::takeLines(std::size_t manager) {
  return std::exchange(managers_[manager].lines, {});
}

}  // namespace fuzz
