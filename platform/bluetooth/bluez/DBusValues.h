#pragma once

// Between sdbus-c++'s values and those of BlueZObjects.h; for the client classes only.

#include <map>
#include <optional>
#include <string>

#include <sdbus-c++/sdbus-c++.h>

#include "platform/bluetooth/bluez/BlueZObjects.h"
#include "platform/foundation/Error.h"

namespace platform::bluez {

using PropertyMap = std::map<std::string, sdbus::Variant>;
using InterfaceMap = std::map<std::string, PropertyMap>;

/// Keeps what it knows and has the right type; a wrong type counts as absent.
AdapterProperties adapterProperties(const PropertyMap& properties);
DeviceProperties deviceProperties(const PropertyMap& properties);
Object objectFrom(const std::string& path, const InterfaceMap& interfaces);
/// Busy: another client holds what was asked for. Absent: nobody on the bus bears the daemon's name.
Error errorFrom(const sdbus::Error& error);
/// The same of a bus that could not be connected to.
Error connectErrorFrom(const sdbus::Error& error);

}  // namespace platform::bluez
