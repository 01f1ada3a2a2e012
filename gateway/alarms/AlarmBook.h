#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/KeptState.h"
#include "gateway/Record.h"
#include "gateway/configuration/Settings.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// A step of an alarm: the state to keep and, where it was raised or cleared, the event to keep in the same
/// transaction and to tell.
struct AlarmChange {
  KeptState state;                     ///< owner: the rule's name; subject: the beacon
  std::optional<BeaconEvent> event{};  ///< `text` is the rule's name
  std::optional<int32_t> value{};      ///< what made it, in the unit of the rule's quantity
};

/// What the history knows at the start.
struct AlarmsKept {
  std::vector<KeptState> states{};
  std::map<BeaconId, platform::Date> heard{};  ///< the newest reading of each beacon
  platform::Date stoppedAt{};                  ///< the newest record of all
};

/// Judges what is heard by the rules in the settings: the states of all alarms, and one timer for the
/// earliest of their deadlines.
///
/// Holds, silences and cooldowns count only the time in which the radio listened: a radio that is down and a
/// program that does not run tell nothing of a beacon. A reading without the quantity neither raises nor
/// clears. What is not plausible is not judged.
///
/// Threads: one call at a time, on `queue`; the handler is called on it, too, from inside calls and from the
/// timer. It may call the book back, except `setSettings`.
class AlarmBook {
 public:
  using ChangeHandler = std::function<void(const AlarmChange&)>;

  AlarmBook(std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t queue,
            std::shared_ptr<const Settings> settings, ChangeHandler onChange);
  ~AlarmBook();
  AlarmBook(const AlarmBook&) = delete;
  AlarmBook& operator=(const AlarmBook&) = delete;

  /// Takes up where the last run stopped; before anything is heard. What was raised stays raised and is not
  /// told again; an alarm whose rule is gone is cleared.
  void restore(const AlarmsKept& kept);
  void heard(const Reading& reading);
  /// Whether the radio listens; it does at first.
  void radio(bool isListening);
  /// Alarms keep their state by the name of their rule.
  void setSettings(std::shared_ptr<const Settings> settings);

  struct Raised {
    const AlarmRule* rule;  ///< of the settings in force
    platform::Date since;
  };
  /// What is raised for this beacon, in the order of the rules.
  std::vector<Raised> raised(const BeaconId& beacon) const;

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;  // the timer holds it weakly
};

}  // namespace brenloft
