#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "gateway/AlarmFacts.h"
#include "gateway/BeaconId.h"
#include "platform/foundation/Date.h"

namespace brenloft {

/// What one advertisement of a sensor beacon measured, as whole numbers; absent where the frame gave none.
struct Quantities {
  std::optional<int32_t> temperature{};  ///< hundredths of a degree Celsius
  std::optional<int32_t> humidity{};     ///< hundredths of a percent, relative
  std::optional<int32_t> battery{};      ///< 0 to 255 as sent; a percentage by the maker's convention
  std::optional<int32_t> emergency{};    ///< 0 to 255; 1 or more signals an emergency
  std::optional<int32_t> txPower{};      ///< 0 to 255 as sent
  std::optional<int32_t> xAccel{};       ///< -32768 to 32767 as sent
  std::optional<int32_t> yAccel{};
  std::optional<int32_t> zAccel{};

  friend bool operator==(const Quantities&, const Quantities&) = default;
};

/// Why a reading is believed or not.
enum class Verdict : uint8_t {
  plausible = 0,
  temperature = 1,  ///< out of any sensor's range
  humidity = 2,
  battery = 3,
  identity = 4,  ///< the identifier is none, such as all zeroes
  unknown = 5,   ///< only some beacons are wanted, and this is none of them
  ignored = 6,   ///< the configuration says so
};
/// "plausible", "temperature", …
std::string_view textOf(Verdict verdict);

/// One advertisement of a beacon. Of an iBeacon only `rssi` is measured.
struct Reading {
  BeaconId beacon;
  platform::Date heard;           ///< by the clock of the machine, or of the capture
  std::optional<int32_t> rssi{};  ///< dBm
  Quantities raw{};               ///< as the beacon sent it
  Quantities shown{};             ///< with the beacon's offsets
  Verdict verdict = Verdict::plausible;
};

/// What happened to a beacon, or to the gateway itself.
struct BeaconEvent {
  enum class Kind : uint8_t {
    found = 1,          ///< heard for the first time, or again after its loss
    lost = 2,           ///< silent for longer than its exit time
    emergency = 3,      ///< its flag went up
    emergencyOver = 4,  ///< its flag went down
    alarmRaised = 5,    ///< by a rule; `text` has its name
    alarmCleared = 6,
    radio = 7,  ///< of the gateway: `text` has the state
    gap = 8,    ///< of the gateway: `count` records could not be written
  };

  std::optional<BeaconId> beacon;  ///< none: the gateway's own
  platform::Date heard;
  Kind kind;
  std::string text{};
  uint64_t count = 0;
  std::optional<AlarmFacts> alarm{};  ///< of an alarm whose rule is known
};

/// "found", "lost", "emergency", "emergency_over", "alarm_raised", "alarm_cleared", "radio", "gap".
std::string_view textOf(BeaconEvent::Kind kind);

/// What people call a beacon and where it stands; "" for what is not configured.
struct Label {
  std::string name{};
  std::string place{};
};
/// As the settings in force have them.
using Labels = std::function<Label(const BeaconId&)>;

using Record = std::variant<Reading, BeaconEvent>;

inline platform::Date heardAt(const Record& record) {
  return std::visit([](const auto& one) { return one.heard; }, record);
}
/// Null for an event of the gateway itself.
const BeaconId* beaconOf(const Record& record);

}  // namespace brenloft
