#include "platform/bluetooth/AdvertisingReport.h"

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

BluetoothAddress BluetoothAddress::fromPacket(std::span<const std::byte, 6> octets, bool isRandom) {
  const auto octet = [&](size_t at) { return std::to_integer<uint8_t>(octets[at]); };
  return {.octets = {octet(5), octet(4), octet(3), octet(2), octet(1), octet(0)}, .isRandom = isRandom};
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
