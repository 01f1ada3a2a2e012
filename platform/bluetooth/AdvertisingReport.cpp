#include "platform/bluetooth/AdvertisingReport.h"

#include <algorithm>

#include "platform/foundation/Hex.h"

namespace platform {

std::string BluetoothAddress::text() const {
  std::string text(octets.size() * 3 - 1, ':');
  for (size_t i = 0; i < octets.size(); ++i) writeHex(&text[i * 3], octets[i], kUpperHexDigits);
  return text;
}

std::optional<BluetoothAddress> BluetoothAddress::fromText(std::string_view text) {
  BluetoothAddress address;
  if (text.size() != address.octets.size() * 3 - 1) return std::nullopt;
  for (size_t i = 0; i < address.octets.size(); ++i) {
    const std::string_view part = text.substr(i * 3, 3);
    const int high = hexDigitValue(part[0]);
    const int low = hexDigitValue(part[1]);
    if (high < 0 || low < 0 || (part.size() == 3 && part[2] != ':')) return std::nullopt;
    address.octets[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return address;
}

BluetoothAddress BluetoothAddress::fromPacket(DataView octets, bool isRandom) {
  BluetoothAddress address;
  address.isRandom = isRandom;
  const DataView six = octets.first(std::min(octets.size(), address.octets.size()));
  std::transform(six.rbegin(), six.rend(), address.octets.begin(), std::to_integer<uint8_t>);
  return address;
}

uint64_t BluetoothAddress::key() const {
  uint64_t key = isRandom ? 1 : 0;
  for (const uint8_t octet : octets) key = key << 8 | octet;
  return key;
}

std::string_view textOf(AdvertisingKind kind) {
  switch (kind) {
    case AdvertisingKind::connectable:
      return "ADV_IND";
    case AdvertisingKind::directed:
      return "ADV_DIRECT_IND";
    case AdvertisingKind::scannable:
      return "ADV_SCAN_IND";
    case AdvertisingKind::nonConnectable:
      return "ADV_NONCONN_IND";
    case AdvertisingKind::scanResponse:
      return "SCAN_RSP";
    case AdvertisingKind::extended:
      return "EXT_ADV";
    case AdvertisingKind::extendedConnectable:
      return "EXT_ADV_CONN";
    case AdvertisingKind::extendedScannable:
      return "EXT_ADV_SCAN";
    case AdvertisingKind::extendedScanResponse:
      return "EXT_SCAN_RSP";
  }
  return "";
}

}  // namespace platform
