#include "platform/bluetooth/bluez/BlueZDevices.h"

#include <algorithm>

#include "platform/bluetooth/ADBuilder.h"

namespace platform::bluez {
namespace {

constexpr std::size_t kLegacyOctets = 31;

std::vector<CBUUID> uuidsFrom(const std::vector<std::string>& texts) {
  std::vector<CBUUID> uuids;
  for (const auto& text : texts) {
    if (const auto uuid = CBUUID::UUIDWithString(text)) uuids.push_back(*uuid);
  }
  return uuids;
}

/// -127 to 20 dBm can be measured.
int8_t rssiFrom(int16_t value) {
  return value >= -127 && value <= 20 ? static_cast<int8_t>(value) : AdvertisingReport::kNoRssi;
}

Data withCompany(uint16_t company, const Data& octets) {
  Data value{std::byte(company & 0xFFU), std::byte(company >> 8U)};
  value.insert(value.end(), octets.begin(), octets.end());
  return value;
}

}  // namespace

void BlueZDevices::learn(const std::string& path, const DeviceProperties& properties) {
  update(path, properties).rssi = AdvertisingReport::kNoRssi;
}

std::optional<Sighting> BlueZDevices::hear(const std::string& path, const DeviceProperties& change) {
  const Device& device = update(path, change);
  if (!change.isAdvertised() || !device.address) return std::nullopt;
  Sighting sighting{.address = *device.address, .rssi = device.rssi, .data = encode(device)};
  if (sighting.data.size() > kLegacyOctets) sighting.kind = AdvertisingKind::extended;
  return sighting;
}

void BlueZDevices::forgetBelow(std::string_view adapterPath) {
  const std::string prefix = std::string(adapterPath) + "/";
  std::erase_if(devices_, [&](const auto& entry) { return entry.first.starts_with(prefix); });
}

BlueZDevices::Device& BlueZDevices::update(const std::string& path, const DeviceProperties& change) {
  Device& device = devices_[path];
  if (change.address) device.address = BluetoothAddress::fromText(*change.address);
  if (change.addressType && device.address) device.address->isRandom = *change.addressType == "random";
  if (change.name) device.name = change.name;
  if (change.txPower) device.txPower = change.txPower;
  if (change.rssi) device.rssi = rssiFrom(*change.rssi);
  if (change.uuids) device.uuids = uuidsFrom(*change.uuids);
  if (change.serviceData) device.serviceData = *change.serviceData;
  if (change.manufacturerData) updateManufacturerData(device, *change.manufacturerData);
  return device;
}

// The daemon adds up the companies that a device ever sent; what differs from before is what was just heard.
void BlueZDevices::updateManufacturerData(Device& device, const std::map<uint16_t, Data>& now) {
  std::vector<uint16_t> changed;
  for (const auto& [company, octets] : now) {
    const auto before = device.manufacturerData.find(company);
    if (before == device.manufacturerData.end() || before->second != octets) changed.push_back(company);
  }
  std::erase_if(device.companies, [&](uint16_t company) { return !now.contains(company); });
  if (!changed.empty()) device.companies = changed;
  if (device.companies.empty()) {
    std::ranges::transform(now, std::back_inserter(device.companies),
                           [](const auto& entry) { return entry.first; });
  }
  device.manufacturerData = now;
}

Data BlueZDevices::encode(const Device& device) {
  ADBuilder builder;
  builder.serviceUUIDs(device.uuids);
  for (const uint16_t company : device.companies)
    builder.manufacturerData(withCompany(company, device.manufacturerData.at(company)));
  for (const auto& [text, octets] : device.serviceData) {
    if (const auto uuid = CBUUID::UUIDWithString(text)) builder.serviceData(*uuid, octets);
  }
  if (device.txPower)
    builder.txPowerLevel(static_cast<int8_t>(std::clamp<int16_t>(*device.txPower, -127, 127)));
  if (device.name) builder.localName(*device.name);
  return builder.octets();
}

}  // namespace platform::bluez
