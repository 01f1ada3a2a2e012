#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Record.h"
#include "gateway/beacons/GapLearner.h"
#include "gateway/beacons/Presence.h"
#include "gateway/configuration/Settings.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// Which beacons are wanted and believed.
struct BeaconChoice {
  ExitTime exitTime{};        ///< of beacons whose settings say nothing of it
  bool isPlausible = true;    ///< only what a sensor can have measured
  bool isKnown = false;       ///< those in the settings
  std::set<BeaconId> only{};  ///< these; neither: every one
};

/// Of the readings that were heard, how many came to which end.
struct BeaconCensus {
  std::array<uint64_t, 7> byVerdict{};

  uint64_t of(Verdict verdict) const { return byVerdict[static_cast<std::size_t>(verdict)]; }
};

/// What is known of each beacon: whether it is there, and the silence it is known for. Judges each reading,
/// gives it its beacon's offsets, and finds from the readings who appears, is lost, and signals an emergency.
///
/// Strangers cannot make it grow: beyond `kCapacity` beacons, the stranger that was silent longest is
/// forgotten. Beacons of the settings are kept.
///
/// Threads: one call at a time, on `queue`; the handlers are called on it, from inside calls and from the
/// timer. They may not call the book back, except to ask.
class BeaconBook {
 public:
  static constexpr std::size_t kCapacity = 10'000;
  /// Of the states that it keeps; their subjects are beacons.
  static constexpr const char* kOwner = "beacon";

  struct Handlers {
    /// Each reading that is believed.
    std::function<void(const Reading&)> onReading;
    /// What is found in it, with the state to keep: found before it, an emergency behind it.
    std::function<void(const BeaconEvent&, const KeptState&)> onEvent;
    /// What is not, with its verdict.
    std::function<void(const Reading&)> onRefused;
    /// A state to keep of which no event tells.
    std::function<void(const KeptState&)> onState;
  };

  BeaconBook(std::shared_ptr<platform::DispatchService> dispatch, const platform::dispatch_queue_t& queue,
             std::shared_ptr<const Settings> settings, BeaconChoice choice, Handlers handlers);
  ~BeaconBook();
  BeaconBook(const BeaconBook&) = delete;
  BeaconBook& operator=(const BeaconBook&) = delete;

  /// Takes up what the last run knew, from what was kept; before anything is heard. Who was there still is,
  /// and has its whole exit time to be heard.
  void restore(const std::vector<KeptState>& states);
  void heard(Reading reading);
  /// Whether the radio listens; it does at first. Silence and gaps count only while it does.
  void radio(bool isListening);
  void setSettings(std::shared_ptr<const Settings> settings);

  const BeaconCensus& census() const { return census_; }
  struct Known {
    bool isPresent;
    std::optional<GapLearner::Time> usualGap;
    GapLearner::Time exitTime;
  };
  std::optional<Known> find(const BeaconId& beacon) const;
  /// The usual gap in a state that a book kept; nothing where it was not known.
  static std::optional<GapLearner::Time> usualGapIn(const KeptState& state);
  /// Whether a beacon was there when a book kept this state of it.
  static bool isPresentIn(const KeptState& state);

 private:
  using Time = GapLearner::Time;
  struct Entry;
  using Entries = std::unordered_map<BeaconId, Entry>;
  struct Entry {
    explicit Entry(std::optional<Time> expected) : gaps(expected) {}

    GapLearner gaps;
    Presence presence;
    bool isEmergency = false;
    const BeaconSettings* settings = nullptr;  // of the settings in force
    Time keptLimit{};                          // as it was when its state was kept last
    std::list<const BeaconId*>::iterator place{};
  };

  Time listened() const;
  Verdict verdictOn(const Reading& reading) const;
  Entry& entryOf(const BeaconId& beacon);
  void forgetAStranger();
  Time exitTimeOf(const Entry& entry) const;
  void lose(const BeaconId& beacon, Entry& entry);
  KeptState stateOf(const BeaconId& beacon, Entry& entry) const;
  void reportEvent(const BeaconId& beacon, Entry& entry, BeaconEvent::Kind kind, platform::Date heard);
  void awaitUntil(Time due);
  void awaitEarliest();
  void timeIsUp();

  const std::shared_ptr<platform::DispatchService> dispatch_;
  std::shared_ptr<const Settings> settings_;
  const BeaconChoice choice_;
  const Handlers handlers_;
  BeaconCensus census_;
  Entries entries_;
  std::list<const BeaconId*> strangers_;  // the one silent longest first
  std::optional<platform::dispatch_time_t> pausedAt_;
  platform::dispatch_time_t paused_{};  // in all
  std::optional<Time> awaited_;         // the timer's deadline
  platform::dispatch_source_t timer_;
};

}  // namespace brenloft
