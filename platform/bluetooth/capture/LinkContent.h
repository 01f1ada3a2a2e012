#pragma once

#include <optional>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/capture/PacketReader.h"

namespace platform {

/// What a packet carries that has to do with advertising. At most one of the four is there.
struct LinkContent {
  DataView event;                           ///< an HCI event with advertising reports
  std::optional<AdvertisingReport> report;  ///< a link-layer packet's, without time
  std::string_view fault;                   ///< what is wrong
  uint32_t channel = 0;                     ///< tells the controllers of a capture apart
  std::optional<RadioState> state;          ///< of the radio that the capture was recorded from
};

LinkContent linkContentOf(const CapturePacket& packet);

}  // namespace platform
