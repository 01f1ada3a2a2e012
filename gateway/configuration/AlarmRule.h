#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "gateway/AlarmFacts.h"
#include "gateway/BeaconId.h"

namespace brenloft {

/// When an alarm is raised, for whom, and who is told. A value, as one `[[alarm]]` gives it.
struct AlarmRule {
  using Quantity = AlarmQuantity;
  using Severity = AlarmSeverity;

  std::string name;  ///< what tells it from the others, also after a change and a restart

  std::optional<BeaconId> beacon{};  ///< only this one
  std::string place{};               ///< only beacons there; neither: every beacon

  Quantity quantity = Quantity::temperature;
  /// In the quantity's own unit: hundredths of a degree or of a percent, dBm, or as sent. One of both at
  /// least, but for silence.
  std::optional<int32_t> above{};
  std::optional<int32_t> below{};
  int32_t hysteresis = 0;  ///< how far back inside the limit a value must be to clear it

  /// `for`: how long the values stay beyond the limit before it is raised; of silence: how long it lasts.
  std::chrono::microseconds hold{};
  std::chrono::microseconds cooldown{};  ///< from one raise to the next at least

  Severity severity = Severity::warning;
  std::string text{};
  std::vector<std::string> exec{};  ///< command and arguments; none: nobody is called
  std::chrono::microseconds execTimeout = std::chrono::seconds(30);

  friend bool operator==(const AlarmRule&, const AlarmRule&) = default;
};

}  // namespace brenloft
