#include "platform/bluetooth/capture/LinkContent.h"

#include "platform/bluetooth/capture/LinkLayer.h"
#include "platform/bluetooth/capture/RadioStateEvent.h"
#include "platform/bluetooth/capture/WireOctets.h"

namespace platform {
namespace {

using Check = LinkLayerReception::Check;

constexpr unsigned kH4Event = 0x04;
constexpr unsigned kMonitorEvent = 3;
constexpr unsigned kLEMeta = 0x3E;
constexpr unsigned kAdvertisingReport = 0x02;
constexpr unsigned kExtendedAdvertisingReport = 0x0D;

LinkContent faulty(std::string_view text) {
  return {.fault = text};
}

/// Events that cannot be told apart because they are cut are kept: their fault wants to be said.
LinkContent event(DataView octets, uint32_t channel) {
  if (!octets.empty() && wire::octet(octets, 0) != kLEMeta) return {.state = radioStateOf(octets)};
  if (octets.size() >= 3) {
    const unsigned subevent = wire::octet(octets, 2);
    if (subevent != kAdvertisingReport && subevent != kExtendedAdvertisingReport) return {};
  }
  if (octets.size() < 2) return faulty("its event is cut");
  return {.event = octets, .channel = channel};
}

LinkContent h4(DataView octets, bool isReceived, uint32_t channel) {
  if (octets.empty()) return faulty("it has no octets");
  if (!isReceived || wire::octet(octets, 0) != kH4Event) return {};
  return event(octets.subspan(1), channel);
}

LinkContent h4WithDirection(const CapturePacket& packet) {
  if (packet.octets.size() < 4) return faulty("its direction is cut");
  const bool isReceived = (wire::octet(packet.octets, 3) & 1U) != 0;
  return h4(packet.octets.subspan(4), isReceived, packet.channel);
}

LinkContent monitor(DataView octets, uint32_t adapter, uint32_t opcode) {
  return opcode == kMonitorEvent ? event(octets, adapter) : LinkContent{};
}

LinkContent monitorWithHeader(DataView octets) {
  if (octets.size() < 4) return faulty("its monitor header is cut");
  return monitor(octets.subspan(4), static_cast<uint32_t>(wire::bigEndian(octets, 0, 2)),
                 static_cast<uint32_t>(wire::bigEndian(octets, 2, 2)));
}

LinkContent linkLayer(DataView octets, const LinkLayerReception& reception) {
  const LinkLayerContent content = readLinkLayerPacket(octets, reception);
  return {.report = content.report, .fault = content.fault};
}

/// LINKTYPE_BLUETOOTH_LE_LL_WITH_PHDR: channel, signal, noise, access address offences and reference, flags.
LinkContent linkLayerWithHeader(DataView octets) {
  constexpr std::size_t kHeader = 10;
  if (octets.size() < kHeader) return faulty("its radio header is cut");
  const auto flags = static_cast<uint32_t>(wire::littleEndian(octets, 8, 2));
  if ((flags & 0x0001U) == 0) return faulty("its octets are still whitened");
  LinkLayerReception reception;
  if ((flags & 0x0002U) != 0) reception.rssi = static_cast<int8_t>(wire::octet(octets, 1));
  if ((flags & 0x0400U) != 0) reception.check = (flags & 0x0800U) != 0 ? Check::good : Check::bad;
  reception.isCoded = flags >> 14U == 2;
  return linkLayer(octets.subspan(kHeader), reception);
}

/// Board, length, version, counter and kind in seven octets; then a header that begins with its own length:
/// flags, channel, signal (dBm without its minus), event counter, time. Versions 1 to 3.
LinkContent nordic(DataView octets) {
  constexpr std::size_t kHeader = 7;
  constexpr std::size_t kRadioHeader = 10;
  constexpr std::string_view kCut = "its sniffer header is cut";
  if (octets.size() < kHeader) return faulty(kCut);
  const unsigned version = wire::octet(octets, 3);
  const unsigned kind = wire::octet(octets, 6);
  if (version < 1 || version > 3) return faulty("its sniffer header is of an unknown version");
  if (kind != 6 && !(kind == 2 && version == 3)) return {};
  if (octets.size() < kHeader + kRadioHeader) return faulty(kCut);
  const std::size_t length = wire::octet(octets, kHeader);
  if (length < kRadioHeader || octets.size() < kHeader + length) return faulty(kCut);
  const unsigned flags = wire::octet(octets, kHeader + 1);
  LinkLayerReception reception;
  reception.check = (flags & 1U) != 0 ? Check::good : Check::bad;
  reception.rssi = static_cast<int8_t>(-static_cast<int>(wire::octet(octets, kHeader + 3)));
  reception.isCoded = (flags >> 4U & 7U) == 2;
  return linkLayer(octets.subspan(kHeader + length), reception);
}

}  // namespace

LinkContent linkContentOf(const CapturePacket& packet) {
  const bool isReceived = (packet.flags & CapturePacket::kReceived) != 0;
  const bool isReceivedEvent =
      (packet.flags & CapturePacket::kReceivedEvent) == CapturePacket::kReceivedEvent;
  switch (packet.link) {
    case CaptureLink::h1:
      return isReceivedEvent ? event(packet.octets, packet.channel) : LinkContent{};
    case CaptureLink::h4:
      return h4(packet.octets, isReceived, packet.channel);
    case CaptureLink::h4Direction:
      return h4WithDirection(packet);
    case CaptureLink::monitor:
      return monitor(packet.octets, packet.flags >> 16U, packet.flags & 0xFFFFU);
    case CaptureLink::monitorHeader:
      return monitorWithHeader(packet.octets);
    case CaptureLink::linkLayer:
      return linkLayer(packet.octets, {});
    case CaptureLink::linkLayerHeader:
      return linkLayerWithHeader(packet.octets);
    case CaptureLink::nordic:
      return nordic(packet.octets);
    case CaptureLink::unsupported:
      break;
  }
  return {};
}

}  // namespace platform
