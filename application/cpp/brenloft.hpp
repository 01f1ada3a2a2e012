#pragma once

// Hears sensor beacons and iBeacons: the whole of it in one header, C++20.
//
//     #include <brenloft.hpp>
//     #include <iostream>
//
//     int main() {
//       auto search = brenloft::Search::start({.source = "demo"});
//       if (!search) {
//         std::cerr << search.error().text << '\n';
//         return 1;
//       }
//       for (const auto& event : *search)
//         if (const auto* reading = event.reading())
//           std::cout << reading->id << "  " << reading->temperatureCelsius.value_or(0) << " °C\n";
//     }
//
// It stands beside the class `BRLContextManager`, not on it: any number of searches run in one process, and
// none of them touches that class or its log.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"

namespace brenloft {

/// An instant, in microseconds since 1970 in UTC: by the machine's clock, the recording's or the
/// simulation's.
using Time = platform::Date;
/// "2026-01-01T00:00:00.061993Z" (ISO 8601, UTC).
BRL_EXPORT std::string toText(Time time);
/// Why something failed: `kind` for programs, `text` is one line for people.
using Error = platform::Error;
/// A value, or the error why there is none; true when there is a value. `*` of an error throws a
/// std::runtime_error with its text.
template <class T = void>
using Result = platform::Result<T>;

/// A beacon's id as events have it, of one that a person typed: of a sensor "C0-C1-5C-00-00-01", typed in
/// either case, with dashes or colons; of an iBeacon "UUID/major/minor". An error of a text that is no
/// beacon's.
BRL_EXPORT Result<std::string> beaconId(std::string_view typed);

/// What one advertisement of a sensor beacon measured.
///
/// A frame has the same zero for 0.00 °C and for a beacon that measures no temperature. It counts as 0.00 °C
/// where the same frame has a humidity, since one sensor measures both, else as absent. What this cannot
/// tell: a thermometer without a hygrometer, at exactly 0.00 °C, has no temperature here.
struct Reading {
  std::string id{};  ///< "C0-C1-5C-00-00-01", from the frame: the beacon's own, whatever its address
  Time time{};       ///< when it was heard
  std::optional<int> rssiDbm{};
  std::optional<double> temperatureCelsius{};       ///< -327.68 to 327.67, in hundredths
  std::optional<double> relativeHumidityPercent{};  ///< 0.01 to 655.35 as sent, in hundredths
  int batteryPercent = 0;                           ///< 0 to 255 as sent; up to 100 by convention
  int emergency = 0;                                ///< 0 to 255 as sent; 1 or more signals an emergency
  int txPower = 0;                                  ///< 0 to 255 as sent
  struct Acceleration {
    int x = 0, y = 0, z = 0;
    friend bool operator==(const Acceleration&, const Acceleration&) = default;
  } acceleration{};                     ///< -32768 to 32767 as sent; the frame names no unit
  std::vector<std::string> services{};  ///< the service UUIDs that it advertised, in the order sent

  bool isEmergency() const { return emergency > 0; }
  /// Of a sensor beacon's manufacturer data, 22 octets or more; nothing of fewer. Has no time, rssi or
  /// service.
  BRL_EXPORT static std::optional<Reading> decode(std::span<const std::byte> manufacturerData);
  friend bool operator==(const Reading&, const Reading&) = default;
};

/// One advertisement of an iBeacon.
struct Sighting {
  std::string id{};  ///< "UUID/major/minor"
  Time time{};
  std::optional<int> rssiDbm{};
  std::string uuid{};  ///< the proximity UUID, upper case
  uint16_t major = 0;
  uint16_t minor = 0;
  int measuredPowerDbm = 0;  ///< what its maker measured at one metre

  friend bool operator==(const Sighting&, const Sighting&) = default;
};

/// A beacon is there that was not: heard for the first time, or again after its loss. Comes before the
/// reading or sighting that it was found by.
struct Found {
  std::string id{};
  Time time{};
  friend bool operator==(const Found&, const Found&) = default;
};

/// A beacon was silent for `Settings::lostAfter`, while the radio listened.
struct Lost {
  std::string id{};
  Time time{};
  std::optional<Time> lastHeard{};  ///< nothing: it was expected, and never heard
  friend bool operator==(const Lost&, const Lost&) = default;
};

/// A sensor beacon's emergency began, or is over. Comes behind the reading that says so.
struct Emergency {
  std::string id{};
  Time time{};
  bool isOver = false;
  friend bool operator==(const Emergency&, const Emergency&) = default;
};

/// What a radio is good for now. More than this, such as what would permit its use, only the reason tells.
enum class RadioState {
  unknown,       ///< nothing is known yet
  restarting,    ///< it failed and is tried again, without end
  unusable,      ///< no bluetoothd, no adapter, or one that cannot listen; waits for a better one
  notPermitted,  ///< this process may not use it
  off,           ///< switched off, blocked, unplugged, or another program has it; waits for its return
  listening,     ///< it is on; whether it hears well, the reason tells
};

/// The radio, or what stands for it, changed its state or the reason for it; the first tells the state at the
/// start. One that never listens says why here, and nothing else comes.
struct RadioChange {
  Time time{};
  RadioState state = RadioState::unknown;
  std::string reason{};  ///< one line for people, where there is one: "hci0 is switched off; …"

  bool isListening() const { return state == RadioState::listening; }
  friend bool operator==(const RadioChange&, const RadioChange&) = default;
};

/// Events were dropped, the oldest first, since they came faster than they were taken. Only of a radio or a
/// paced source: others wait.
struct Missed {
  uint64_t count = 0;
  friend bool operator==(const Missed&, const Missed&) = default;
};

/// One thing that happened. A variant: use `std::visit`, or ask for what you want.
struct Event : std::variant<Reading, Sighting, Found, Lost, Emergency, RadioChange, Missed> {
  using variant::variant;

  const Reading* reading() const { return std::get_if<Reading>(this); }
  const Sighting* sighting() const { return std::get_if<Sighting>(this); }
  const Found* found() const { return std::get_if<Found>(this); }
  const Lost* lost() const { return std::get_if<Lost>(this); }
  const Emergency* emergency() const { return std::get_if<Emergency>(this); }
  const RadioChange* radio() const { return std::get_if<RadioChange>(this); }
  const Missed* missed() const { return std::get_if<Missed>(this); }
  /// Of which beacon; "" where it is of none.
  BRL_EXPORT std::string_view beacon() const;
};

/// A part of all iBeacons: an absent number means any.
struct Region {
  std::string uuid{};
  std::optional<uint16_t> major{};
  std::optional<uint16_t> minor{};
};

class SimulatedAir;
class SearchEngine;

/// What to search for, and where.
struct Settings {
  /// `auto`, `bluez[:ADAPTER]`, `hci[:ADAPTER]`, `h4:…`, `capture:FILE[?paced]` or `demo[?paced]`; `sources`
  /// lists what this machine offers.
  std::string source = "auto";
  bool sensors = true;
  bool iBeacons = false;
  /// Sensors that advertise one of these service UUIDs; empty: all.
  std::vector<std::string> services{};
  /// iBeacons of one of these, with `iBeacons`; empty: all.
  std::vector<Region> regions{};
  /// The silence after which a beacon is lost; `std::chrono::milliseconds::max()`: never.
  std::chrono::milliseconds lostAfter = std::chrono::seconds(30);
  /// Beacons that should be there, by id as a person types it: each is lost, too, when it is never heard for
  /// so long. To compare such a text with an event's id, ask `beaconId` for its form first. An iBeacon can
  /// only be expected where `iBeacons` are searched for, a sensor where `sensors` are.
  std::vector<std::string> expected{};
  /// A file that gets everything heard, to be heard again with `capture:FILE`; "": none. It has all of it
  /// once the search has ended or was stopped.
  std::string record{};
  /// Takes lines for people: what `auto` chose, what is wrong with a record of a capture. Any thread.
  std::function<void(std::string_view line)> onMessage{};
  /// Heard instead of `source`, which is not looked at then: for tests. It cannot be recorded.
  std::shared_ptr<SimulatedAir> air{};
};

/// What a search calls. Each may be left out.
struct Handlers {
  std::function<void(const Reading&)> onReading{};
  std::function<void(const Sighting&)> onSighting{};
  std::function<void(const Found&)> onFound{};
  std::function<void(const Lost&)> onLost{};
  std::function<void(const Emergency&)> onEmergency{};
  std::function<void(const RadioChange&)> onRadio{};
  std::function<void(const Missed&)> onMissed{};
  std::function<void()> onEnd{};  ///< nothing more will come: the capture or the demonstration is over
};

/// Runs a block on a queue of the application's: soon, one at a time, not from inside the call.
using Executor = std::function<void(std::function<void()> block)>;

/// A search, from its start to the end of the object. It can be moved.
///
/// Its events are taken in one of two ways: pulled, with `next` or a loop over the search, or handed to
/// handlers. A source that is not paced (`capture:`, `demo`) waits for who takes them; of a radio, those that
/// nobody takes are dropped beyond `kCapacity`, the oldest first, and counted.
///
/// Threads: `stop` may be called from any thread, and so may `next` by one at a time. Handlers are called one
/// at a time, with no lock held: by the executor, else on a thread of the search's own. They may stop the
/// search, and they may destroy it or give it another: then it is over, and what is left of it goes once they
/// have returned. An exception that leaves one ends the process; by an executor, it reaches whoever runs the
/// block. `next` gives nothing where there are handlers.
///
/// A search must not be moved while another call of it runs, nor inside a loop over it. One that was moved
/// from can only be destroyed or given another: anything else is a std::logic_error.
class BRL_EXPORT Search {
 public:
  static constexpr std::size_t kCapacity = 4'096;

  /// Fails when the source cannot be opened, the recording cannot be begun, or the settings contradict
  /// themselves. A source that names no radio of this machine fails here (Error::Kind::absent); a radio that
  /// is there and cannot be used yet is told as a RadioChange, and heard once it can be.
  /// Handlers may be called before it has returned.
  [[nodiscard]] static Result<Search> start(Settings settings);
  [[nodiscard]] static Result<Search> start(Settings settings, Handlers handlers, Executor executor = {});

  Search(Search&&) noexcept;
  Search& operator=(Search&&) noexcept;
  /// Stops. No handler begins once it has returned; one that runs is waited for, unless it runs by an
  /// executor or is what destroys the search.
  ~Search();

  /// Ends the search: nothing is heard any more, and `next` gives what waits, then nothing. Waits for a
  /// handler that runs on another thread, unless it runs by an executor: hold no lock that a handler takes.
  /// `onEnd` is not called.
  void stop();

  /// The next event; waits for it. Nothing: the search has ended.
  std::optional<Event> next();
  /// The next event within this time; one that is not above 0 does not wait. Nothing: there was none, or the
  /// search has ended.
  std::optional<Event> next(std::chrono::milliseconds timeout);
  /// Whether nothing more will come.
  bool hasEnded() const;
  /// Becomes readable when `next` has something to give at once, the end included: for a poll loop. Owned by
  /// the search; watch it, do not read it.
  int fileDescriptor() const;

  class Iterator;
  /// A loop over the search takes its events, and ends with it.
  Iterator begin();
  std::default_sentinel_t end() const { return {}; }

 private:
  explicit Search(std::shared_ptr<SearchEngine> engine);
  SearchEngine& engine() const;
  std::shared_ptr<SearchEngine> engine_;
};

/// Goes once over what is left.
class Search::Iterator {
 public:
  using value_type = Event;
  using difference_type = std::ptrdiff_t;

  explicit Iterator(Search& search) : search_(&search), event_(search.next()) {}
  const Event& operator*() const { return *event_; }
  const Event* operator->() const { return &*event_; }
  Iterator& operator++() {
    event_ = search_->next();
    return *this;
  }
  void operator++(int) { ++*this; }
  friend bool operator==(const Iterator& iterator, std::default_sentinel_t) { return !iterator.event_; }

 private:
  Search* search_;
  std::optional<Event> event_;
};

inline Search::Iterator Search::begin() {
  return Iterator(*this);
}

/// One thing that this machine offers to hear, or would.
struct Source {
  std::string address{};  ///< for `Settings::source`
  std::string name{};
  std::string state{};       ///< "usable", or why not: "absent", "blocked", "off", "in use", "not permitted"
  std::string why{};         ///< one line for people
  bool isAutomatic = false;  ///< what `auto` stands for
};
BRL_EXPORT std::vector<Source> sources();

/// An air without a radio, and its clock, for an application's own tests: time stands still until the test
/// moves it, and nothing sleeps.
///
///     auto air = brenloft::SimulatedAir::make();
///     FridgeAlarm alarm({.air = air});                            // what is tested; starts a search
///     air->repeat(Reading{.id = "C0-C1-5C-00-00-01", .temperatureCelsius = 9.5}, std::chrono::seconds(10));
///     air->advance(std::chrono::minutes(11));
///     EXPECT_TRUE(alarm.isRaised());
///
/// Handlers run inside `advance` and `send`; `next` gives what has happened and never waits.
/// A reading that no frame can carry is a std::invalid_argument, and so are an interval of nothing and time
/// that goes back.
///
/// Threads: one at a time.
class BRL_EXPORT SimulatedAir {
 public:
  static std::shared_ptr<SimulatedAir> make(Time start = Time(std::chrono::sys_days(std::chrono::year(2026) /
                                                                                    1 / 1)));
  virtual ~SimulatedAir() = default;

  /// Sends one advertisement now, as this reading says; its `time` is ignored. Without an rssi, none is
  /// heard. The same reading again within 20 ms is the same advertisement, and heard once.
  virtual void send(const Reading& reading) = 0;
  virtual void send(const Sighting& sighting) = 0;
  /// Sends it now and then every `interval`, until `silence` is called with the returned number.
  virtual int repeat(const Reading& reading, std::chrono::milliseconds interval) = 0;
  virtual int repeat(const Sighting& sighting, std::chrono::milliseconds interval) = 0;
  virtual void silence(int number) = 0;
  /// Switches the radio off, or makes it fail otherwise, for this reason; or on again.
  virtual void setRadio(RadioState state, std::string reason = {}) = 0;
  /// Moves the clock; what becomes due on the way happens, each at its own instant.
  virtual void advance(std::chrono::microseconds duration) = 0;
  virtual Time now() const = 0;
};

}  // namespace brenloft
