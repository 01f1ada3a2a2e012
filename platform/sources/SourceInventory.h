#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"

namespace platform {

/// One thing that this machine offers to hear, or would.
struct OfferedSource {
  std::string address;     ///< for `openSource`; of captures, a form
  std::string name;        ///< "hci0 (C0:00:00:00:00:01)"
  std::string_view state;  ///< "usable", "absent", "blocked", "off", "in use", "not permitted"
  std::string why;         ///< one line for people: how it hears, or what makes it usable
};

/// What there is to hear, found at one moment: radios first, then what needs none.
struct SourceInventory {
  std::vector<OfferedSource> sources;
  std::string automatic;         ///< the address that `auto` stands for; "" when there is none
  std::string why;               ///< of that choice, one line for people
  std::optional<Error> problem;  ///< why the kernel could not be asked

  /// Asks the kernel and bluetoothd; waits for the system bus five seconds at most.
  BRL_EXPORT static SourceInventory take();
};

}  // namespace platform
