#include "platform/location/BeaconPresence.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/location/BeaconLocationService.h"

namespace platform {
namespace {

uint32_t keyOf(uint16_t major, uint16_t minor) {
  return uint32_t{major} << 16U | minor;
}

bool matches(const CLBeaconRegion& region, uint32_t key) {
  return (!region.major() || *region.major() == key >> 16U) &&
         (!region.minor() || *region.minor() == (key & 0xFFFFU));
}

const CLBeaconRegion* asBeaconRegion(const CLRegionPtr& region) {
  return dynamic_cast<const CLBeaconRegion*>(region.get());
}

}  // namespace

bool BeaconPresence::isMonitored(const CLRegionPtr& region) const {
  return std::ranges::find(regions_, region) != regions_.end();
}

bool BeaconPresence::addRegion(const CLRegionPtr& region) {
  const bool replaces = states_.contains(region->identifier());
  if (!replaces && regions_.size() >= BeaconLocationService::kMaximumRegions) return false;
  if (isMonitored(region)) return true;
  std::erase_if(regions_, [&](const CLRegionPtr& old) { return old->identifier() == region->identifier(); });
  regions_.push_back(region);
  states_[region->identifier()] = CLRegionState::unknown;
  updateWatches();
  return true;
}

void BeaconPresence::removeRegion(const std::string& identifier) {
  std::erase_if(regions_, [&](const CLRegionPtr& region) { return region->identifier() == identifier; });
  states_.erase(identifier);
  updateWatches();
}

void BeaconPresence::setRangedUUIDs(std::set<NSUUID> uuids) {
  ranged_ = std::move(uuids);
  updateWatches();
}

void BeaconPresence::updateWatches() {
  std::set<NSUUID> wanted = ranged_;
  for (const CLRegionPtr& region : regions_)
    if (const auto* beaconRegion = asBeaconRegion(region)) wanted.insert(beaconRegion->proximityUUID());
  std::erase_if(watches_, [&](const auto& entry) { return !wanted.contains(entry.first); });
  for (const NSUUID& uuid : wanted) watches_.try_emplace(uuid);
}

void BeaconPresence::startListening(dispatch_time_t now) {
  if (!listeningSince_) listeningSince_ = now;
  for (auto& [uuid, watch] : watches_)
    if (!watch.since) watch.since = now;
}

void BeaconPresence::forget() {
  listeningSince_.reset();
  for (auto& [uuid, watch] : watches_) watch = {};
  for (auto& [identifier, state] : states_) state = CLRegionState::unknown;
}

bool BeaconPresence::hear(const iBeaconFrame& frame, int64_t rssi, dispatch_time_t now, Changes& changes) {
  if (!listeningSince_) return false;
  const auto watch = watches_.find(frame.proximityUUID);
  if (watch == watches_.end()) return false;
  const uint32_t key = keyOf(frame.major, frame.minor);
  const auto [entry, isNew] = watch->second.heard.try_emplace(key);
  Heard& heard = entry->second;
  if (heard.second != second_) heard = {.second = second_};
  heard.last = now;
  heard.measuredPower = frame.measuredPower;
  if (rssi != AdvertisingReport::kNoRssi) {
    heard.rssiSum += rssi;
    ++heard.measured;
  }
  if (!isNew) return false;
  for (const CLRegionPtr& region : regions_) {
    const auto* beaconRegion = asBeaconRegion(region);
    if (beaconRegion != nullptr && beaconRegion->proximityUUID() == frame.proximityUUID &&
        matches(*beaconRegion, key))
      setState(region, CLRegionState::inside, changes);
  }
  return true;
}

void BeaconPresence::check(dispatch_time_t now, Changes& changes) {
  for (auto& [uuid, watch] : watches_)
    std::erase_if(watch.heard, [&](const auto& entry) { return isOver(entry.second, now); });
  for (const CLRegionPtr& region : regions_)
    if (const auto* beaconRegion = asBeaconRegion(region))
      setState(region, evaluate(*beaconRegion, now), changes);
}

void BeaconPresence::setState(const CLRegionPtr& region, CLRegionState state, Changes& changes) {
  CLRegionState& known = states_[region->identifier()];
  if (state == known || state == CLRegionState::unknown) return;
  changes.push_back({region, known, state});
  known = state;
}

const BeaconPresence::Watch* BeaconPresence::watchOf(const CLBeaconRegion& region) const {
  const auto watch = watches_.find(region.proximityUUID());
  return watch == watches_.end() ? nullptr : &watch->second;
}

/// When the region's silence will have lasted long enough; nothing while nobody listens for it.
std::optional<dispatch_time_t> BeaconPresence::exitTime(const CLBeaconRegion& region) const {
  const Watch* watch = watchOf(region);
  if (!listeningSince_ || watch == nullptr || !watch->since) return std::nullopt;
  dispatch_time_t quietSince = std::max(*listeningSince_, *watch->since);
  for (const auto& [key, heard] : watch->heard)
    if (matches(region, key)) quietSince = std::max(quietSince, heard.last);
  return quietSince + BeaconLocationService::kExitDelay;
}

/// A radio that is away hears no silence.
bool BeaconPresence::isOver(const Heard& heard, dispatch_time_t now) const {
  return listeningSince_ && now - std::max(heard.last, *listeningSince_) >= BeaconLocationService::kExitDelay;
}

/// What the remembered beacons say, unknown when they say nothing. Those that are only ranged may stay longer
/// than they count.
CLRegionState BeaconPresence::evaluate(const CLBeaconRegion& region, dispatch_time_t now) const {
  const Watch* watch = watchOf(region);
  if (watch == nullptr) return CLRegionState::unknown;
  const bool isHeard = std::ranges::any_of(watch->heard, [&](const auto& entry) {
    return matches(region, entry.first) && !isOver(entry.second, now);
  });
  if (isHeard) return CLRegionState::inside;
  const auto exit = exitTime(region);
  return exit && now >= *exit ? CLRegionState::outside : CLRegionState::unknown;
}

std::optional<dispatch_time_t> BeaconPresence::nextCheck(dispatch_time_t now) const {
  if (!listeningSince_) return std::nullopt;
  std::optional<dispatch_time_t> next;
  const auto consider = [&](std::optional<dispatch_time_t> time) {
    if (time && (!next || *time < *next)) next = time;
  };
  for (const CLRegionPtr& region : regions_) {
    const auto* beaconRegion = asBeaconRegion(region);
    if (beaconRegion != nullptr && states_.at(region->identifier()) != CLRegionState::outside)
      consider(exitTime(*beaconRegion));
  }
  // Beacons outside every region, as those that are only ranged, must be forgotten too.
  for (const auto& [uuid, watch] : watches_)
    if (!watch.heard.empty()) consider(now + BeaconLocationService::kExitDelay);
  return next;
}

CLRegionState BeaconPresence::state(const CLRegionPtr& region, dispatch_time_t now) const {
  const auto* beaconRegion = asBeaconRegion(region);
  if (beaconRegion == nullptr) return CLRegionState::unknown;
  const CLRegionState found = evaluate(*beaconRegion, now);
  // While the radio is away, a monitored region keeps what is known of it.
  return found == CLRegionState::unknown && isMonitored(region) ? states_.at(region->identifier()) : found;
}

std::vector<CLBeacon> BeaconPresence::range(const CLBeaconRegion& region, dispatch_time_t now) const {
  const Watch* watch = watchOf(region);
  if (watch == nullptr) return {};
  std::vector<std::pair<std::optional<int64_t>, CLBeacon>> byPathLoss;  // none: not measured
  for (const auto& [key, heard] : watch->heard) {
    if (!matches(region, key) || now - heard.last >= BeaconLocationService::kRangingMemory) continue;
    const bool isMeasured = heard.second == second_ && heard.measured > 0;
    const int64_t mean =
        isMeasured ? std::llround(static_cast<double>(heard.rssiSum) / static_cast<double>(heard.measured))
                   : 0;
    byPathLoss.push_back({isMeasured ? std::optional(heard.measuredPower - mean) : std::nullopt,
                          {.proximityUUID = region.proximityUUID(),
                           .major = static_cast<uint16_t>(key >> 16U),
                           .minor = static_cast<uint16_t>(key & 0xFFFFU),
                           .rssi = mean}});
  }
  std::ranges::sort(byPathLoss, {}, [](const auto& entry) {
    const auto& [pathLoss, beacon] = entry;
    return std::tuple(!pathLoss, pathLoss, beacon.major, beacon.minor);
  });
  std::vector<CLBeacon> beacons;
  beacons.reserve(byPathLoss.size());
  for (const auto& [pathLoss, beacon] : byPathLoss) beacons.push_back(beacon);
  return beacons;
}

}  // namespace platform
