#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// A beacon's identifier in the one form in which everything here gives it, from the forms in which people
/// type it: of a sensor "C0-C1-5C-00-00-01", typed in either case, with dashes or with colons; of an iBeacon
/// "UUID/major/minor" with the UUID in capitals. Nothing of a text that is no beacon's.
std::optional<std::string> beaconIdentifierFrom(std::string_view typed);

/// Which kind of beacon has this identifier, in that form.
inline bool isOfIBeacon(std::string_view identifier) {
  return identifier.find('/') != std::string_view::npos;
}
/// "UUID/major/minor"; the UUID in capitals.
std::string iBeaconIdentifier(std::string_view uuid, uint16_t major, uint16_t minor);

}  // namespace platform
