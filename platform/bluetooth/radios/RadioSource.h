#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/radios/RadioInventory.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/Error.h"

namespace platform {

/// Without a source, the error says what was looked for and what would permit it: the radio is absent, not
/// permitted to this process, or the address can be none.
using RadioSourceResult = Result<std::shared_ptr<AdvertisingReportSource>>;

struct RadioSourceOptions {
  /// `auto`, `bluez[:hciN|:ADDRESS]`, `hci[:…]` or `h4:…` (as in hci/RadioAddress.h).
  std::string address = "auto";
  std::shared_ptr<DispatchService> dispatch;
  /// One line for people each: what `auto` chose and why, and what a driver meets beside its states. May be
  /// empty.
  std::function<void(std::string_view)> onDiagnostic;
  /// Where to look; for tests.
  RadioProbe probe = {};
  dispatch_queue_t queue = nullptr;  ///< on which the source lives; without one, a queue of its own
};

/// The radio that an address names. Looks whether it is there and permitted, which may wait for the system
/// bus five seconds at most, but opens nothing; what happens later is told by the source's states.
RadioSourceResult makeRadioSource(const RadioSourceOptions& options);

/// Why the text can be no radio's address, whether or not there is such a radio; nothing when it can.
std::optional<Error> radioAddressProblem(const std::string& address);

/// True when the text has the form of a radio's address, whether or not there is such a radio.
bool isRadioAddress(std::string_view address);

}  // namespace platform
