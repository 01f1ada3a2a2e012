#include "platform/bluetooth/capture/LinkLayer.h"

#include <array>

#include "platform/bluetooth/capture/WireOctets.h"

namespace platform {
namespace {

constexpr uint32_t kAdvertisingAccessAddress = 0x8E89BED6;
constexpr std::size_t kAccessAddress = 4;
constexpr std::size_t kPduHeader = 2;
constexpr std::size_t kCrc = 3;
constexpr std::size_t kAddress = 6;

// x^24 + x^10 + x^9 + x^6 + x^4 + x^3 + x + 1 and 0x555555, with the bits in the order on the air.
constexpr uint32_t kCrcPolynomial = 0xDA6000;
constexpr uint32_t kCrcStart = 0xAAAAAA;

constexpr std::array<uint32_t, 256> crcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < table.size(); ++i) {
    uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? kCrcPolynomial : 0);
    table[i] = value;
  }
  return table;
}
constexpr auto kCrcTable = crcTable();

/// Of the PDU types with an address and data; nothing for the others.
std::optional<AdvertisingKind> legacyKind(unsigned type) {
  switch (type) {
    case 0:
      return AdvertisingKind::connectable;
    case 1:
      return AdvertisingKind::directed;
    case 2:
      return AdvertisingKind::nonConnectable;
    case 4:
      return AdvertisingKind::scanResponse;
    case 6:
      return AdvertisingKind::scannable;
    default:
      return std::nullopt;
  }
}

AdvertisingKind extendedKind(unsigned mode) {
  if (mode == 1) return AdvertisingKind::extendedConnectable;
  return mode == 2 ? AdvertisingKind::extendedScannable : AdvertisingKind::extended;
}

LinkLayerContent readLegacy(DataView payload, AdvertisingKind kind, bool isRandom) {
  const bool isDirected = kind == AdvertisingKind::directed;
  if (payload.size() < (isDirected ? 2 * kAddress : kAddress))
    return {{}, "its PDU is too short for its addresses"};
  AdvertisingReport report;
  report.kind = kind;
  report.address = BluetoothAddress::fromPacket(payload.first<kAddress>(), isRandom);
  if (!isDirected) report.data = payload.subspan(kAddress);
  return {report, {}};
}

/// The common extended advertising payload (Vol 6, Part B, 2.3.4).
LinkLayerContent readExtended(DataView payload, bool isRandom) {
  constexpr std::string_view kOverrun = "its extended header runs over the end";
  if (payload.empty()) return {{}, kOverrun};
  const std::size_t length = wire::octet(payload, 0) & 0x3FU;
  const unsigned mode = wire::octet(payload, 0) >> 6U;
  if (payload.size() < 1 + length) return {{}, kOverrun};
  const DataView header = payload.subspan(1, length);
  const DataView data = payload.subspan(1 + length);
  const unsigned flags = header.empty() ? 0 : wire::octet(header, 0);
  const bool hasAddress = (flags & 1U) != 0;
  const bool hasChain = (flags & 0x10U) != 0;
  if (!hasAddress || data.empty()) return {};
  if (header.size() < 1 + kAddress) return {{}, kOverrun};
  AdvertisingReport report;
  report.kind = extendedKind(mode);
  report.address = BluetoothAddress::fromPacket(header.subspan(1).first<kAddress>(), isRandom);
  report.data = data;
  report.isTruncated = hasChain;
  return {report, {}};
}

}  // namespace

uint32_t advertisingCrc(DataView pdu) {
  uint32_t value = kCrcStart;
  for (const std::byte octet : pdu)
    value = value >> 8 ^ kCrcTable[(value ^ std::to_integer<uint32_t>(octet)) & 0xFF];
  return value;
}

LinkLayerContent readLinkLayerPacket(DataView packet, const LinkLayerReception& reception) {
  using CrcCheck = LinkLayerReception::Check;
  constexpr std::string_view kCut = "its link-layer packet is cut";
  if (reception.check == CrcCheck::bad) return {};
  if (packet.size() < kAccessAddress) return {{}, kCut};
  if (wire::littleEndian(packet, 0, 4) != kAdvertisingAccessAddress) return {};
  const std::size_t start = kAccessAddress + (reception.isCoded ? 1 : 0);
  if (packet.size() < start + kPduHeader) return {{}, kCut};
  const unsigned head = wire::octet(packet, start);
  const std::size_t length = kPduHeader + wire::octet(packet, start + 1);
  if (packet.size() < start + length + kCrc) return {{}, kCut};
  const DataView pdu = packet.subspan(start, length);
  if (reception.check == CrcCheck::unknown &&
      advertisingCrc(pdu) != wire::littleEndian(packet, start + length, kCrc))
    return {};
  const bool isRandom = (head & 0x40U) != 0;
  const unsigned type = head & 0x0FU;
  LinkLayerContent content;
  if (type == 7)
    content = readExtended(pdu.subspan(kPduHeader), isRandom);
  else if (const auto kind = legacyKind(type))
    content = readLegacy(pdu.subspan(kPduHeader), *kind, isRandom);
  if (content.report) content.report->rssi = reception.rssi;
  return content;
}

}  // namespace platform
