#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/bluez/BlueZObjects.h"

namespace platform::bluez {

/// One report made of a device's state; `data` are AD structures.
struct Sighting {
  BluetoothAddress address;
  AdvertisingKind kind = AdvertisingKind::nonConnectable;
  int8_t rssi = AdvertisingReport::kNoRssi;
  Data data;
};

/// The daemon's device objects, and what they say about what was in the air just now.
class BlueZDevices {
 public:
  /// Takes over what was known before, without anything being heard.
  void learn(const std::string& path, const DeviceProperties& properties);
  /// Takes a change over. A sighting when the change comes from an advertisement of a known device.
  std::optional<Sighting> hear(const std::string& path, const DeviceProperties& change);
  void forget(const std::string& path) { devices_.erase(path); }
  /// Forgets what was known below an adapter's path.
  void forgetBelow(std::string_view adapterPath);
  void clear() { devices_.clear(); }

 private:
  struct Device {
    std::optional<BluetoothAddress> address;
    std::optional<std::string> name;
    std::optional<int16_t> txPower;
    int8_t rssi = AdvertisingReport::kNoRssi;
    std::vector<CBUUID> uuids;
    std::map<uint16_t, Data> manufacturerData;
    std::vector<uint16_t> companies;  ///< whose data the newest advertisement had
    std::map<std::string, Data> serviceData;
  };

  Device& update(const std::string& path, const DeviceProperties& change);
  static void updateManufacturerData(Device& device, const std::map<uint16_t, Data>& now);
  static Data encode(const Device& device);

  std::map<std::string, Device> devices_;
};

}  // namespace platform::bluez
