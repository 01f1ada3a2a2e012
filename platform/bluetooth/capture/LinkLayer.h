#pragma once

#include <optional>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"

namespace platform {

/// What a sniffer knew about a link-layer packet.
struct LinkLayerReception {
  enum class Check { unknown, good, bad };

  int8_t rssi = AdvertisingReport::kNoRssi;
  Check check = Check::unknown;  ///< of the packet's CRC; where it is unknown it is computed
  bool isCoded = false;          ///< LE Coded: an octet with the coding stands behind the access address
};

struct LinkLayerContent {
  std::optional<AdvertisingReport> report;  ///< without time; its data is the packet's
  std::string_view fault;                   ///< what is wrong, empty when nothing is
};

/// Reads a packet (access address, PDU, CRC; Bluetooth Core, Vol 6, Part B, 2.1 to 2.3) of the advertising
/// physical channels. Packets of connections, requests and packets with a bad CRC carry nothing. Of extended
/// advertising each PDU with an advertiser's address and data is a report of its own; chains are not
/// followed.
LinkLayerContent readLinkLayerPacket(DataView packet, const LinkLayerReception& reception);

/// The CRC of a PDU on the advertising channels (Vol 6, Part B, 3.1.1), first octet on the air lowest.
uint32_t advertisingCrc(DataView pdu);

}  // namespace platform
