#include "platform/simulated/SimulatedAdvertisement.h"

#include "platform/bluetooth/ADBuilder.h"

namespace platform {
namespace {

/// LE general discoverable, no classic Bluetooth.
constexpr uint8_t kBeaconFlags = 0x06;

void append(Data& data, unsigned octet) {
  data.push_back(static_cast<std::byte>(octet));
}

void appendLittleEndian(Data& data, uint16_t value) {
  append(data, value & 0xFFU);
  append(data, value >> 8U);
}

void appendBigEndian(Data& data, int16_t value) {
  append(data, static_cast<uint16_t>(value) >> 8U);
  append(data, static_cast<uint16_t>(value) & 0xFFU);
}

}  // namespace

Data SimulatedAdvertisement::octets() const {
  ADBuilder builder;
  if (flags) builder.flags(*flags);
  if (!serviceUUIDs.empty()) builder.serviceUUIDs(serviceUUIDs);
  if (manufacturerData) builder.manufacturerData(*manufacturerData);
  if (localName) builder.localName(*localName);
  return builder.octets();
}

Data SensorFrame::octets() const {
  Data data;
  data.reserve(22);
  appendLittleEndian(data, static_cast<uint16_t>(temperature));
  appendLittleEndian(data, humidity);
  append(data, txPower);
  append(data, battery);
  append(data, emergency);
  for (const uint8_t octet : uniqueId) append(data, octet);
  for (const int16_t acceleration : {xAccel, yAccel, zAccel}) appendBigEndian(data, acceleration);
  for (const uint8_t octet : tbd) append(data, octet);
  return data;
}

SimulatedAdvertisement sensorAdvertisement(const BluetoothAddress& address, const CBUUID& service,
                                           const SensorFrame& frame, int8_t rssi) {
  return {.address = address,
          .kind = AdvertisingKind::connectable,
          .rssi = rssi,
          .flags = kBeaconFlags,
          .serviceUUIDs = {service},
          .manufacturerData = frame.octets(),
          .localName = {}};
}

SimulatedAdvertisement iBeaconAdvertisement(const BluetoothAddress& address, const iBeaconFrame& frame,
                                            int8_t rssi) {
  return {.address = address,
          .kind = AdvertisingKind::nonConnectable,
          .rssi = rssi,
          .flags = kBeaconFlags,
          .serviceUUIDs = {},
          .manufacturerData = iBeaconManufacturerData(frame),
          .localName = {}};
}

}  // namespace platform
