#include "application/cpp/Listener.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "application/cpp/Decoding.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/foundation/BeaconIdentifier.h"

namespace brenloft {
namespace {

using platform::CBManagerState;

// Bluetooth Core, Vol 6, Part B, 4.4.2.2.1: nobody advertises more often than this. The same frame again
// within it is the same advertisement, told once more with its scan response.
constexpr std::chrono::milliseconds kLeastInterval{20};

// What nanoseconds cannot count is for ever.
std::chrono::nanoseconds silenceOf(std::chrono::milliseconds lostAfter) {
  constexpr auto longest = std::chrono::nanoseconds::max();
  return lostAfter > std::chrono::floor<std::chrono::milliseconds>(longest) ? longest : lostAfter;
}

}  // namespace

Result<Wanted> Wanted::of(const Settings& settings) {
  const auto refuse = [](std::string text) { return Error{Error::Kind::unsupported, std::move(text)}; };
  if (!settings.sensors && !settings.iBeacons) return refuse("neither sensors nor iBeacons are searched for");
  if (!settings.regions.empty() && !settings.iBeacons)
    return refuse("regions are given, and no iBeacons are searched for");
  if (settings.lostAfter <= settings.lostAfter.zero())
    return refuse("the silence that loses a beacon must be longer than nothing");
  if (settings.air && !settings.record.empty()) return refuse("a simulated air cannot be recorded");
  Wanted wanted{settings.sensors, settings.iBeacons, {}, {}, silenceOf(settings.lostAfter)};
  for (const std::string& text : settings.services) {
    const auto service = platform::CBUUID::UUIDWithString(text);
    if (!service) return refuse("not a service UUID: " + text);
    wanted.services.push_back(*service);
  }
  for (const auto& [text, major, minor] : settings.regions) {
    const auto uuid = platform::NSUUID::initWithUUIDString(text);
    if (!uuid) return refuse("not a proximity UUID: " + text);
    wanted.regions.push_back({*uuid, major, minor});
  }
  for (const std::string& text : settings.expected) {
    auto id = beaconId(text);
    if (!id) return id.error();
    if (!(platform::isOfIBeacon(*id) ? settings.iBeacons : settings.sensors))
      return refuse("expected, but its kind is not searched for: " + text);
    wanted.expected.push_back(*std::move(id));
  }
  return wanted;
}

Listener::Listener(Hearing hearing, platform::dispatch_queue_t queue, Wanted wanted,
                   std::function<void(Event)> onEvent)
    : hearing_(std::move(hearing)),
      queue_(std::move(queue)),
      wanted_(std::move(wanted)),
      onEvent_(std::move(onEvent)),
      gate_([this] {
        if (timer_) timer_->cancel();
        central_.reset();
      }) {
  for (const std::string& id : wanted_.expected)
    if (!byId_.contains(id)) add(id);
}

Listener::~Listener() {
  stop();
}

void Listener::start() {
  timer_ = hearing_.dispatch->createTimer(queue_);
  timer_->setEventHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->gate_.call([&] { self->loseSilent(); });
  });
  timer_->resume();
  states_ = hearing_.states->watch([queue = queue_, weak = weak_from_this()](const auto& state) {
    queue->async([weak, state] {
      if (const auto self = weak.lock()) self->gate_.call([&] { self->changed(state); });
    });
  });
  central_ = hearing_.bluetooth->makeCentralManager(*this, queue_);
}

void Listener::changed(const platform::RadioState& state) {
  onEvent_(RadioChange{hearing_.dispatch->date(), static_cast<RadioState>(state.state), state.reason});
  if (state.state != CBManagerState::poweredOn) {
    isListening_ = false;
    awaited_.reset();
    listeningSince_ = platform::DISPATCH_TIME_FOREVER;
  } else if (!std::exchange(isListening_, true)) {
    listeningSince_ = hearing_.dispatch->now();
    await();
  }
}

// An event may be what lets go of the listener: each way in from the radio holds it.
void Listener::centralManagerDidUpdateState(platform::CBCentralManager& central) {
  const auto self = shared_from_this();
  gate_.call([&] { startScan(central); });
}

// Whoever also wants iBeacons hears everything: those have no service.
void Listener::startScan(platform::CBCentralManager& central) const {
  if (central.state() != CBManagerState::poweredOn) return;
  const bool isOfServices = !wanted_.iBeacons && !wanted_.services.empty();
  central.scanForPeripheralsWithServices_options(
      isOfServices ? std::optional(wanted_.services) : std::nullopt, {.allowDuplicates = true});
}

void Listener::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    platform::CBCentralManager& /*central*/, const platform::CBPeripheral& /*peripheral*/,
    const platform::CBAdvertisementData& advertisement, int64_t rssi) {
  const auto self = shared_from_this();
  gate_.call([&] { discovered(advertisement, rssi); });
}

void Listener::discovered(const platform::CBAdvertisementData& advertisement, int64_t rssi) {
  const auto measured =
      rssi == platform::AdvertisingReport::kNoRssi ? std::nullopt : std::optional(static_cast<int>(rssi));
  const Time now = hearing_.dispatch->date();
  if (wanted_.iBeacons) {
    if (auto sighting = sightingIn(advertisement); sighting && isWanted(*sighting)) {
      sighting->time = now;
      sighting->rssiDbm = measured;
      return heard(*std::move(sighting));
    }
  }
  if (!wanted_.sensors) return;
  if (auto reading = readingIn(advertisement, wanted_.services)) {
    reading->time = now;
    reading->rssiDbm = measured;
    heard(*std::move(reading));
  }
}

bool Listener::isWanted(const Sighting& sighting) const {
  return wanted_.regions.empty() || std::ranges::any_of(wanted_.regions, [&](const Wanted::Region& region) {
           return region.uuid.UUIDString() == sighting.uuid &&
                  (!region.major || *region.major == sighting.major) &&
                  (!region.minor || *region.minor == sighting.minor);
         });
}

Listener::Beacons::iterator Listener::add(const std::string& id) {
  const auto added = beacons_.insert(beacons_.end(), Beacon{.id = id});
  byId_.emplace(added->id, added);
  return added;
}

Listener::Beacon& Listener::present(const std::string& id, Time time) {
  const auto known = byId_.find(id);
  const auto found = known == byId_.end() ? add(id) : known->second;
  beacons_.splice(beacons_.end(), beacons_, found);
  Beacon& beacon = *found;
  if (!std::exchange(beacon.isHeard, true)) onEvent_(Found{id, time});
  beacon.at = hearing_.dispatch->now();
  beacon.heard = time;
  if (!awaited_) await();
  return beacon;
}

void Listener::heard(Reading reading) {
  const auto known = byId_.find(reading.id);
  if (known != byId_.end()) {
    const Beacon& beacon = *known->second;
    const bool isRecent = hearing_.dispatch->now() - beacon.at < kLeastInterval;
    if (isRecent && beacon.last && hasSameFrame(*beacon.last, reading)) return;
  }
  Beacon& beacon = present(reading.id, reading.time);
  const bool begins = reading.isEmergency() && !beacon.isEmergency;
  const bool ends = !reading.isEmergency() && beacon.isEmergency;
  beacon.isEmergency = reading.isEmergency();
  beacon.last = reading;
  const Emergency emergency{reading.id, reading.time, ends};
  onEvent_(std::move(reading));
  if (begins || ends) onEvent_(emergency);
}

void Listener::heard(Sighting sighting) {
  present(sighting.id, sighting.time);
  onEvent_(std::move(sighting));
}

// Silence while the radio does not listen does not count.
Listener::Instant Listener::dueOf(const Beacon& beacon) const {
  return platform::dispatch_time(std::max(beacon.at, listeningSince_), wanted_.lostAfter);
}

void Listener::await() {
  if (beacons_.empty()) return awaited_.reset();
  awaited_ = dueOf(beacons_.front());
  timer_->setTimer(*awaited_, platform::DISPATCH_TIME_FOREVER, {});
}

void Listener::loseSilent() {
  const Instant now = hearing_.dispatch->now();
  while (!gate_.isClosed() && !beacons_.empty() && dueOf(beacons_.front()) <= now) {
    const Beacon& silent = beacons_.front();
    const Lost lost{silent.id, hearing_.dispatch->date(),
                    silent.isHeard ? std::optional(silent.heard) : std::nullopt};
    byId_.erase(beacons_.front().id);
    beacons_.pop_front();
    onEvent_(lost);
  }
  await();
}

}  // namespace brenloft
