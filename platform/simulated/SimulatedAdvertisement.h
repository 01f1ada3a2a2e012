#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"
#include "platform/location/iBeaconFrame.h"

namespace platform {

/// What a simulated device sends in one packet; absent fields are not sent.
struct SimulatedAdvertisement {
  BluetoothAddress address{};
  AdvertisingKind kind = AdvertisingKind::connectable;
  int8_t rssi = -60;               ///< dBm as it is heard; AdvertisingReport::kNoRssi for none
  std::optional<uint8_t> flags{};  ///< AD type 0x01
  std::vector<CBUUID> serviceUUIDs{};
  std::optional<Data> manufacturerData{};  ///< company identifier first
  std::optional<std::string> localName{};

  /// The AD structures in the order flags, service UUIDs, manufacturer data, name. They are not held to 31
  /// octets, so that a test may send what no legacy radio would.
  BRL_EXPORT Data octets() const;
};

/// The readings of a sensor beacon as they travel.
struct SensorFrame {
  int16_t temperature = 2345;  ///< hundredths of a degree
  uint16_t humidity = 4800;    ///< hundredths of a percent
  uint8_t txPower = 0;
  uint8_t battery = 100;
  uint8_t emergency = 0;
  std::array<uint8_t, 6> uniqueId{};
  int16_t xAccel = 0;
  int16_t yAccel = 0;
  int16_t zAccel = 1000;
  std::array<uint8_t, 3> tbd{};

  /// 22 octets: the manufacturer data of a sensor beacon. Temperature and humidity are little-endian, the
  /// three accelerations big-endian.
  BRL_EXPORT Data octets() const;
};

/// A sensor beacon's packet: flags, one service UUID and the frame. 31 octets with a UUID of 16 bits.
BRL_EXPORT SimulatedAdvertisement sensorAdvertisement(const BluetoothAddress& address, const CBUUID& service,
                                                      const SensorFrame& frame, int8_t rssi = -60);

/// An iBeacon's packet: flags and the frame.
BRL_EXPORT SimulatedAdvertisement iBeaconAdvertisement(const BluetoothAddress& address,
                                                       const iBeaconFrame& frame, int8_t rssi = -60);

}  // namespace platform
