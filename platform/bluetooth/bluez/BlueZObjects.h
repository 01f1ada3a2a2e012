#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Data.h"

namespace platform::bluez {

inline constexpr const char* kService = "org.bluez";
inline constexpr const char* kAdapterInterface = "org.bluez.Adapter1";
inline constexpr const char* kDeviceInterface = "org.bluez.Device1";

/// Properties of org.bluez.Adapter1; absent ones were not in the message.
struct AdapterProperties {
  std::optional<std::string> address;
  std::optional<std::string> powerState;  ///< "on", "off", "off-blocked", … since BlueZ 5.65
  std::optional<bool> powered;
  std::optional<bool> discovering;
};

/// Properties of org.bluez.Device1; absent ones were not in the message.
struct DeviceProperties {
  std::optional<std::string> address;
  std::optional<std::string> addressType;  ///< "public" or "random"
  std::optional<std::string> name;         ///< as the device sent it
  std::optional<int16_t> rssi;
  std::optional<int16_t> txPower;
  std::optional<std::vector<std::string>> uuids;
  std::optional<std::map<uint16_t, Data>> manufacturerData;  ///< by company identifier
  std::optional<std::map<std::string, Data>> serviceData;    ///< by UUID text

  /// True when the message comes from an advertisement and not from, say, a connection.
  bool isAdvertised() const { return rssi || manufacturerData || serviceData || txPower; }
};

/// What one message says about one object of the daemon.
struct Object {
  std::string path;
  std::optional<AdapterProperties> adapter;
  std::optional<DeviceProperties> device;
};

}  // namespace platform::bluez
