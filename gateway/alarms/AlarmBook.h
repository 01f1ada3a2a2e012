#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Record.h"
#include "gateway/alarms/AlarmStep.h"
#include "gateway/configuration/Settings.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// What somebody is to be told of an alarm.
struct AlarmNotice {
  AlarmRule rule;
  BeaconId beacon;
  bool isRaised;  ///< else cleared
  platform::Date at;
  std::optional<int32_t> value{};  ///< what made it, in the unit of the rule's quantity
};

/// What a history knows of the last run.
struct AlarmsKept {
  std::vector<KeptState> states{};             ///< of whatever rooms
  std::map<BeaconId, platform::Date> heard{};  ///< the newest reading of each beacon
  std::optional<platform::Date> stoppedAt{};   ///< the newest record of all
};

/// Judges what is heard by the rules in the settings: the states of all alarms, and one timer for the
/// earliest of their deadlines.
///
/// Holds, silences and cooldowns count only the time in which the radio listened: a radio that is down and a
/// program that does not run tell nothing of a beacon. A reading without the quantity neither raises nor
/// clears. What is not plausible is not judged. A rule for every beacon finds silent only those of the
/// settings: strangers come and go. Beyond `kCapacity` beacons with an alarm strangers raise none.
///
/// Threads: one call at a time, on `queue`; the handlers are called on it, from inside calls and from the
/// timer. They may not call the book back, except to ask.
class AlarmBook {
 public:
  static constexpr std::size_t kCapacity = 10'000;

  struct Handlers {
    /// Raised or cleared; `text` is the rule's name. To be told, and kept together with its state.
    std::function<void(const BeaconEvent&, const KeptState&)> onEvent;
    /// A state to keep of which no event tells.
    std::function<void(const KeptState&)> onState;
    /// Somebody is to be called; `notified` says that it was done. A rule without a command has none.
    std::function<void(const AlarmNotice&)> onNotice;
  };

  AlarmBook(std::shared_ptr<platform::DispatchService> dispatch, const platform::dispatch_queue_t& queue,
            std::shared_ptr<const Settings> settings, Handlers handlers);
  ~AlarmBook();
  AlarmBook(const AlarmBook&) = delete;
  AlarmBook& operator=(const AlarmBook&) = delete;

  /// Takes up where the last run stopped, before anything is heard. What was raised stays raised and is not
  /// raised again; who was not told yet is; an alarm whose rule is gone is cleared.
  void restore(const AlarmsKept& kept);
  void heard(const Reading& reading);
  /// Whether the radio listens; it does at first.
  void radio(bool isListening);
  /// Alarms keep their state by the name of their rule.
  void setSettings(std::shared_ptr<const Settings> settings);
  /// What only this process knows: how long what is pending has lasted. Call it at the end.
  void keepPending();
  /// The oldest notice of this rule and beacon has been dealt with.
  void notified(const std::string& rule, const BeaconId& beacon);

  struct Raised {
    const AlarmRule* rule;  ///< of the settings in force
    platform::Date since;
  };
  /// What is raised for this beacon, in the order of the rules.
  std::vector<Raised> raised(const BeaconId& beacon) const;
  /// The alarm that was raised for the state's subject when a book kept it; nothing where none was.
  static std::optional<std::string> raisedIn(const KeptState& state);
  /// Whether a rule is for a beacon, of which the settings say this or nothing.
  static bool concerns(const AlarmRule& rule, const BeaconId& beacon, const BeaconSettings* known);

 private:
  // What is remembered of one rule for one beacon.
  struct Slot {
    std::size_t rule;
    RuleState state{};
    platform::Date since{};     // of the phase
    platform::Date raisedOn{};  // where it was raised
    std::string untold{};       // an r or a c for each notice that was not dealt with, the oldest first
  };
  using Slots = std::vector<Slot>;  // of one beacon, in the order of the rules
  using SlotsByBeacon = std::unordered_map<BeaconId, Slots>;

  const AlarmRule& ruleOf(const Slot& slot) const { return settings_->alarms[slot.rule]; }
  ListenedTime listened() const;
  bool hasRoomFor(const BeaconId& beacon) const;
  bool isOver(const Slot& slot) const;
  static Slot* find(Slots& slots, std::size_t rule);
  Slot& slotOf(const BeaconId& beacon, std::size_t rule);
  void forgetWhatIsOver(SlotsByBeacon::iterator slots);
  void beginSilences();
  void judge(const BeaconId& beacon, Slot& slot, std::optional<int32_t> value, platform::Date now);
  void apply(const BeaconId& beacon, Slot& slot, std::optional<int32_t> value, platform::Date now);
  void report(const BeaconId& beacon, Slot& slot, const RuleEvent& event, std::optional<int32_t> beyond,
              platform::Date at);
  void awaitUntil(ListenedTime due);
  void awaitEarliest();
  void timeIsUp();

  // What outlives the process and its settings.
  KeptState stateOf(const BeaconId& beacon, const Slot& slot) const;
  void restoreSlot(const BeaconId& beacon, std::size_t rule, const KeptState& state, const AlarmsKept& kept);
  void clearWithoutRule(const KeptState& state, const BeaconId& beacon);
  Slots adopted(const BeaconId& beacon, const Slots& slots, const Settings& before);

  const std::shared_ptr<platform::DispatchService> dispatch_;
  std::shared_ptr<const Settings> settings_;
  const Handlers handlers_;
  SlotsByBeacon slots_;
  std::optional<platform::dispatch_time_t> pausedAt_;
  ListenedTime paused_{};                // in all
  std::optional<ListenedTime> awaited_;  // the timer's deadline
  platform::dispatch_source_t timer_;
};

}  // namespace brenloft
