#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/BeaconId.h"
#include "gateway/Record.h"
#include "gateway/configuration/AlarmRule.h"

namespace brenloft {

/// The silence after which a beacon is lost: learned from its own gaps, or given.
struct ExitTime {
  std::optional<std::chrono::microseconds> given{};  ///< none: learned

  friend bool operator==(const ExitTime&, const ExitTime&) = default;
};

/// What one `[beacon."ID"]` says.
struct BeaconSettings {
  std::string name{};
  std::string place{};
  int32_t temperatureOffset = 0;       ///< hundredths of a degree, added to what is shown
  int32_t humidityOffset = 0;          ///< hundredths of a percent
  std::optional<ExitTime> exitTime{};  ///< absent: as for every beacon
  std::optional<std::chrono::microseconds> expectedInterval{};  ///< between two advertisements
  bool ignore = false;                                          ///< nothing of it is kept, shown or judged

  friend bool operator==(const BeaconSettings&, const BeaconSettings&) = default;
};

/// An option of a command, as the file has it: `[scan]` `source = "hci:0"` is `--source hci:0`.
struct OptionSetting {
  std::string option{};              ///< its long name, without hyphens in front
  std::vector<std::string> words{};  ///< one per value; none: a flag that is set
  unsigned line = 0;                 ///< where it stands

  friend bool operator==(const OptionSetting& a, const OptionSetting& b) {
    return a.option == b.option && a.words == b.words;
  }
};

/// Everything the settings file says. An immutable value, handed on as `std::shared_ptr<const Settings>`.
struct Settings {
  std::map<std::string, std::vector<OptionSetting>> options{};  ///< by command: "scan", "log show"
  std::map<BeaconId, BeaconSettings> beacons{};
  std::vector<AlarmRule> alarms{};

  std::vector<BeaconId> named() const;  ///< every beacon of which they, or an alarm, say something
  /// What is said of this beacon; nothing for a stranger.
  const BeaconSettings* beacon(const BeaconId& id) const;
  /// Its name, or its identifier where it has none.
  const std::string& nameOf(const BeaconId& id) const;
  Label labelOf(const BeaconId& id) const;
  const AlarmRule* alarm(const std::string& name) const;

  friend bool operator==(const Settings&, const Settings&) = default;
};

}  // namespace brenloft
