#include "platform/bluetooth/capture/PacketReader.h"

#include <algorithm>

#include <fmt/format.h>

namespace platform {

CaptureLink captureLinkOfPcap(uint32_t linkType) {
  switch (linkType) {
    case 187:
      return CaptureLink::h4;
    case 201:
      return CaptureLink::h4Direction;
    case 251:
      return CaptureLink::linkLayer;
    case 254:
      return CaptureLink::monitorHeader;
    case 256:
      return CaptureLink::linkLayerHeader;
    case 272:
      return CaptureLink::nordic;
    default:
      return CaptureLink::unsupported;
  }
}

Date believableDate(Date date) {
  using std::chrono::sys_days, std::chrono::year;
  return std::clamp<Date>(date, sys_days(year(1) / 1 / 1), sys_days(year(9999) / 12 / 31));
}

PacketReader::Next PacketReader::cutIn(const char* where, std::string& fault) {
  fault = fmt::format("the file ends inside its {}", where);
  return Next::end;
}

PacketReader::Next PacketReader::takeOctets(uint64_t length, CapturePacket& packet, std::string& fault) {
  const bool isBelievable = length <= kMaximumLength;
  if (isBelievable) packet.octets = buffer_.peek(static_cast<std::size_t>(length));
  const uint64_t found = isBelievable ? packet.octets.size() : buffer_.skip(length);
  if (isBelievable) buffer_.drop(packet.octets.size());
  if (found < length) {
    fault = fmt::format("it announces {} octets and the file ends after {}", length, found);
    return Next::end;
  }
  if (isBelievable) return Next::packet;
  fault = fmt::format("{} octets are more than a packet can have", length);
  return Next::skipped;
}

}  // namespace platform
