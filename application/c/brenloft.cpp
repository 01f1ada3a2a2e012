#include "application/c/brenloft.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "BrenloftSDK/BrenloftSDK_vers.h"
#include "application/cpp/brenloft.hpp"

// Each function turns what it is given into the C++ interface's terms, and back. Nothing is decided here.

struct brenloft_search {
  brenloft::Search search;
};
struct brenloft_air {
  std::shared_ptr<brenloft::SimulatedAir> air;
};

namespace {

using brenloft::Event;
using brenloft::Reading;
using brenloft::Sighting;

thread_local std::string errorText;

brenloft_status fail(brenloft_status status, std::string text) {
  errorText = std::move(text);
  return status;
}

brenloft_status fail(const brenloft::Error& error) {
  using Kind = brenloft::Error::Kind;
  const auto status = [&] {
    switch (error.kind) {
      case Kind::failed:
        return BRENLOFT_FAILED;
      case Kind::busy:
        return BRENLOFT_BUSY;
      case Kind::absent:
        return BRENLOFT_ABSENT;
      case Kind::off:
        return BRENLOFT_OFF;
      case Kind::notPermitted:
        return BRENLOFT_NOT_PERMITTED;
      case Kind::unsupported:
        return BRENLOFT_UNSUPPORTED;
    }
    return BRENLOFT_FAILED;
  };
  return fail(status(), error.text);
}

// Runs what a function does; an exception becomes an error.
template <class Work>
brenloft_status guarded(const Work& work) noexcept {
  try {
    errorText.clear();
    return work();
  } catch (const std::invalid_argument& error) {
    return fail(BRENLOFT_UNSUPPORTED, error.what());
  } catch (const std::exception& error) {
    return fail(BRENLOFT_FAILED, error.what());
  }
}

brenloft_status missing(const char* what) {
  return fail(BRENLOFT_UNSUPPORTED, std::string(what) + " is NULL");
}

// A text in a field of fixed length, cut at a whole character.
template <std::size_t Length>
void put(char (&field)[Length], std::string_view text) {  // NOLINT(*-avoid-c-arrays): the interface's
  auto length = std::min(text.size(), Length - 1);
  while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
    --length;
  text.substr(0, length).copy(static_cast<char*>(field), length);
  field[length] = '\0';
}

int64_t microseconds(brenloft::Time time) {
  return time.time_since_epoch().count();
}

constexpr double kAbsent = std::numeric_limits<double>::quiet_NaN();

struct Filler {
  brenloft_event& event;

  void begin(brenloft_kind kind, std::string_view id, brenloft::Time time) const {
    event.kind = kind;
    put(event.id, id);
    event.time_us = microseconds(time);
  }
  void operator()(const Reading& reading) const {
    begin(BRENLOFT_READING, reading.id, reading.time);
    event.rssi_dbm = reading.rssiDbm.value_or(BRENLOFT_NO_RSSI);
    event.temperature_celsius = reading.temperatureCelsius.value_or(kAbsent);
    event.relative_humidity_percent = reading.relativeHumidityPercent.value_or(kAbsent);
    event.battery_percent = reading.batteryPercent;
    event.emergency = reading.emergency;
    event.tx_power = reading.txPower;
    event.acceleration[0] = reading.acceleration.x;
    event.acceleration[1] = reading.acceleration.y;
    event.acceleration[2] = reading.acceleration.z;
    if (!reading.services.empty()) put(event.service, reading.services.front());
  }
  void operator()(const Sighting& sighting) const {
    begin(BRENLOFT_SIGHTING, sighting.id, sighting.time);
    event.rssi_dbm = sighting.rssiDbm.value_or(BRENLOFT_NO_RSSI);
    event.measured_power_dbm = sighting.measuredPowerDbm;
    put(event.uuid, sighting.uuid);
    event.major = sighting.major;
    event.minor = sighting.minor;
  }
  void operator()(const brenloft::Found& found) const { begin(BRENLOFT_FOUND, found.id, found.time); }
  void operator()(const brenloft::Lost& lost) const {
    begin(BRENLOFT_LOST, lost.id, lost.time);
    event.last_heard_us = lost.lastHeard ? microseconds(*lost.lastHeard) : 0;
  }
  void operator()(const brenloft::Emergency& emergency) const {
    begin(BRENLOFT_EMERGENCY, emergency.id, emergency.time);
    event.flag = emergency.isOver ? 0 : 1;
  }
  void operator()(const brenloft::RadioChange& change) const {
    begin(BRENLOFT_RADIO, {}, change.time);
    event.flag = change.isListening() ? 1 : 0;
    event.radio_state = static_cast<int32_t>(change.state);
    put(event.text, change.reason);
  }
  void operator()(const brenloft::Missed& missed) const {
    event.kind = BRENLOFT_MISSED;
    event.count = missed.count;
  }
};

brenloft_event emptyEvent() {
  brenloft_event event{};
  event.size = sizeof event;
  event.rssi_dbm = BRENLOFT_NO_RSSI;
  event.temperature_celsius = event.relative_humidity_percent = kAbsent;
  return event;
}

brenloft_event eventFor(const Event& from) {
  brenloft_event event = emptyEvent();
  std::visit(Filler{event}, static_cast<const Event::variant&>(from));
  return event;
}

// As much as the caller's struct has room for.
void store(brenloft_event event, void* to, std::size_t size) {
  event.size = std::min(size, sizeof event);
  std::memcpy(to, &event, event.size);
}

// A struct of the caller's, whatever its version: what it has not is as in `whole`.
template <class Struct>
Struct readStruct(const Struct& from, Struct whole) {
  if (from.size == 0) throw std::invalid_argument("the size of a struct is not set: use its INIT");
  std::memcpy(&whole, &from, std::min(from.size, sizeof whole));
  return whole;
}

std::optional<uint16_t> numberOf(int32_t number) {
  if (number < 0) return std::nullopt;
  if (number <= std::numeric_limits<uint16_t>::max()) return static_cast<uint16_t>(number);
  throw std::invalid_argument("a major or minor is 0 to 65535: " + std::to_string(number));
}

std::vector<std::string> textsIn(const char* const* list, std::size_t count, const char* name) {
  if (list == nullptr && count > 0) throw std::invalid_argument(std::string(name) + " is NULL");
  std::vector<std::string> texts;
  for (const char* text : std::span(list, count)) texts.emplace_back(text == nullptr ? "" : text);
  return texts;
}

brenloft::Settings settingsOf(const brenloft_settings& given) {
  const auto from = readStruct(given, brenloft_settings BRENLOFT_SETTINGS_INIT);
  brenloft::Settings settings;
  if (from.source != nullptr) settings.source = from.source;
  if ((from.kinds & ~(BRENLOFT_SENSORS | BRENLOFT_IBEACONS)) != 0)
    throw std::invalid_argument("no kinds of beacons: " + std::to_string(from.kinds));
  settings.sensors = (from.kinds & BRENLOFT_SENSORS) != 0;
  settings.iBeacons = (from.kinds & BRENLOFT_IBEACONS) != 0;
  settings.services = textsIn(from.services, from.service_count, "services");
  settings.expected = textsIn(from.expected, from.expected_count, "expected");
  if (from.regions == nullptr && from.region_count > 0) throw std::invalid_argument("regions is NULL");
  for (const auto& [uuid, major, minor] : std::span(from.regions, from.region_count))
    settings.regions.push_back({uuid == nullptr ? "" : uuid, numberOf(major), numberOf(minor)});
  settings.lostAfter = std::chrono::milliseconds(from.lost_after_ms);
  if (from.record != nullptr) settings.record = from.record;
  if (from.on_message != nullptr)
    settings.onMessage = [take = from.on_message, user = from.user_data](std::string_view line) {
      take(user, std::string(line).c_str());
    };
  if (from.air != nullptr) settings.air = from.air->air;
  return settings;
}

template <class... Handlers>
brenloft_status start(const brenloft_settings* settings, brenloft_search** search, Handlers&&... handlers) {
  return guarded([&] {
    if (settings == nullptr) return missing("settings");
    if (search == nullptr) return missing("search");
    *search = nullptr;
    auto started = brenloft::Search::start(settingsOf(*settings), std::forward<Handlers>(handlers)...);
    if (!started) return fail(started.error());
    *search = new brenloft_search{*std::move(started)};
    return BRENLOFT_OK;
  });
}

// Held at the ends of what can be said.
std::chrono::microseconds microsecondsOf(int64_t milliseconds) {
  constexpr auto longest = std::chrono::floor<std::chrono::milliseconds>(std::chrono::microseconds::max());
  return std::clamp(std::chrono::milliseconds(milliseconds), -longest, longest);
}

void requireSize(std::size_t size) {
  if (size == 0) throw std::invalid_argument("the size of the event is not set: use BRENLOFT_EVENT_INIT");
}

brenloft_status takeOne(brenloft::Search& search, int64_t timeout, void* to, std::size_t size) {
  requireSize(size);
  const auto event = timeout < 0 ? search.next() : search.next(std::chrono::milliseconds(timeout));
  if (!event) return search.hasEnded() ? BRENLOFT_END : BRENLOFT_NONE;
  store(eventFor(*event), to, size);
  return BRENLOFT_OK;
}

std::optional<double> measured(double number) {
  return std::isnan(number) ? std::nullopt : std::optional(number);
}

std::optional<int> rssiIn(const brenloft_event& event) {
  return event.rssi_dbm == BRENLOFT_NO_RSSI ? std::nullopt : std::optional<int>(event.rssi_dbm);
}

Sighting sightingFor(const brenloft_event& event) {
  return {.rssiDbm = rssiIn(event),
          .uuid = static_cast<const char*>(event.uuid),
          .major = numberOf(event.major).value_or(0),
          .minor = numberOf(event.minor).value_or(0),
          .measuredPowerDbm = event.measured_power_dbm};
}

Reading readingFor(const brenloft_event& event) {
  Reading reading{.id = static_cast<const char*>(event.id),
                  .rssiDbm = rssiIn(event),
                  .temperatureCelsius = measured(event.temperature_celsius),
                  .relativeHumidityPercent = measured(event.relative_humidity_percent),
                  .batteryPercent = event.battery_percent,
                  .emergency = event.emergency,
                  .txPower = event.tx_power,
                  .acceleration = {event.acceleration[0], event.acceleration[1], event.acceleration[2]}};
  if (event.service[0] != '\0') reading.services = {static_cast<const char*>(event.service)};
  return reading;
}

// Calls `send` with the reading or the sighting that the event tells of.
template <class Send>
brenloft_status sendOn(brenloft_air* air, const brenloft_event* event, const Send& send) {
  return guarded([&] {
    if (air == nullptr || event == nullptr) return missing(air == nullptr ? "air" : "event");
    const brenloft_event whole = readStruct(*event, emptyEvent());
    if (whole.kind == BRENLOFT_READING)
      send(*air->air, readingFor(whole));
    else if (whole.kind == BRENLOFT_SIGHTING)
      send(*air->air, sightingFor(whole));
    else
      throw std::invalid_argument("only readings and sightings can be sent");
    return BRENLOFT_OK;
  });
}

}  // namespace

const char* brenloft_error_text(void) {
  return errorText.c_str();
}

const char* brenloft_version(void) {
  return BRENLOFT_VERSION;
}

brenloft_status brenloft_decode(const uint8_t* data, size_t length, brenloft_event* event) {
  return guarded([&] {
    if (data == nullptr) return missing("data");
    if (event == nullptr) return missing("event");
    requireSize(event->size);
    const auto reading = Reading::decode(std::as_bytes(std::span(data, length)));
    if (!reading)
      return fail(BRENLOFT_UNSUPPORTED, "a frame has 22 octets or more: " + std::to_string(length));
    store(eventFor(*reading), event, event->size);
    return BRENLOFT_OK;
  });
}

brenloft_status brenloft_beacon_id(const char* typed, char* id, size_t size) {
  return guarded([&] {
    if (typed == nullptr || id == nullptr) return missing(typed == nullptr ? "typed" : "id");
    const auto known = brenloft::beaconId(typed);
    if (!known) return fail(known.error());
    if (known->size() >= size)
      throw std::invalid_argument("too little room for an id: " + std::to_string(size));
    known->copy(id, known->size());
    id[known->size()] = '\0';
    return BRENLOFT_OK;
  });
}

brenloft_status brenloft_search_start(const brenloft_settings* settings, brenloft_search** search) {
  return start(settings, search);
}

brenloft_status brenloft_search_start_with_handler(const brenloft_settings* settings,
                                                   brenloft_handler handler, void* user_data,
                                                   brenloft_search** search) {
  if (handler == nullptr) return guarded([] { return missing("handler"); });
  const auto hand = [handler, user_data](const auto& one) {
    const brenloft_event event = eventFor(one);
    handler(user_data, &event);
  };
  return start(settings, search,
               brenloft::Handlers{.onReading = hand,
                                  .onSighting = hand,
                                  .onFound = hand,
                                  .onLost = hand,
                                  .onEmergency = hand,
                                  .onRadio = hand,
                                  .onMissed = hand,
                                  .onEnd = [handler, user_data] { handler(user_data, nullptr); }});
}

brenloft_status brenloft_search_next(brenloft_search* search, int64_t timeout_ms, brenloft_event* event) {
  return guarded([&] {
    if (search == nullptr) return missing("search");
    if (event == nullptr) return missing("event");
    return takeOne(search->search, timeout_ms, event, event->size);
  });
}

brenloft_status brenloft_search_next_many(brenloft_search* search, int64_t timeout_ms, brenloft_event* events,
                                          size_t event_size, size_t capacity, size_t* count) {
  return guarded([&] {
    if (search == nullptr) return missing("search");
    if (events == nullptr || count == nullptr) return missing(events == nullptr ? "events" : "count");
    *count = 0;
    auto* next = reinterpret_cast<std::byte*>(events);
    brenloft_status status = BRENLOFT_OK;
    std::size_t taken = 0;
    for (; taken < capacity; ++taken, next += event_size) {
      status = takeOne(search->search, taken == 0 ? timeout_ms : 0, next, event_size);
      if (status != BRENLOFT_OK) break;
    }
    *count = taken;
    return taken > 0 ? BRENLOFT_OK : status;
  });
}

int brenloft_search_descriptor(const brenloft_search* search) {
  int descriptor = -1;
  (void)guarded([&] {
    if (search == nullptr) return missing("search");
    descriptor = search->search.fileDescriptor();
    return BRENLOFT_OK;
  });
  return descriptor;
}

void brenloft_search_stop(brenloft_search* search) {
  if (search != nullptr) search->search.stop();
}

void brenloft_search_free(brenloft_search* search) {
  delete search;
}

brenloft_status brenloft_sources(void (*take)(void* user_data, const brenloft_source* source),
                                 void* user_data) {
  return guarded([&] {
    if (take == nullptr) return missing("take");
    for (const auto& [address, name, state, why, isAutomatic] : brenloft::sources()) {
      const brenloft_source source{.size = sizeof source,
                                   .address = address.c_str(),
                                   .name = name.c_str(),
                                   .state = state.c_str(),
                                   .why = why.c_str(),
                                   .is_automatic = isAutomatic ? 1 : 0};
      take(user_data, &source);
    }
    return BRENLOFT_OK;
  });
}

brenloft_status brenloft_air_make(brenloft_air** air) {
  return guarded([&] {
    if (air == nullptr) return missing("air");
    *air = new brenloft_air{brenloft::SimulatedAir::make()};
    return BRENLOFT_OK;
  });
}

void brenloft_air_free(brenloft_air* air) {
  delete air;
}

brenloft_status brenloft_air_send(brenloft_air* air, const brenloft_event* event) {
  return sendOn(air, event, [](brenloft::SimulatedAir& on, const auto& one) { on.send(one); });
}

brenloft_status brenloft_air_repeat(brenloft_air* air, const brenloft_event* event, int64_t interval_ms,
                                    int32_t* number) {
  if (number == nullptr) return guarded([] { return missing("number"); });
  return sendOn(air, event, [&](brenloft::SimulatedAir& on, const auto& one) {
    *number = on.repeat(one, std::chrono::milliseconds(interval_ms));
  });
}

brenloft_status brenloft_air_silence(brenloft_air* air, int32_t number) {
  return guarded([&] {
    if (air == nullptr) return missing("air");
    air->air->silence(number);
    return BRENLOFT_OK;
  });
}

brenloft_status brenloft_air_advance(brenloft_air* air, int64_t duration_ms) {
  return guarded([&] {
    if (air == nullptr) return missing("air");
    air->air->advance(microsecondsOf(duration_ms));
    return BRENLOFT_OK;
  });
}

brenloft_status brenloft_air_set_radio(brenloft_air* air, int32_t state, const char* reason) {
  return guarded([&] {
    if (air == nullptr) return missing("air");
    if (state < BRENLOFT_RADIO_UNKNOWN || state > BRENLOFT_RADIO_LISTENING)
      throw std::invalid_argument("no state of a radio: " + std::to_string(state));
    air->air->setRadio(static_cast<brenloft::RadioState>(state), reason == nullptr ? "" : reason);
    return BRENLOFT_OK;
  });
}
