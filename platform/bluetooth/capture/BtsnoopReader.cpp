#include <fmt/format.h>

#include "platform/bluetooth/capture/BtsnoopFormat.h"
#include "platform/bluetooth/capture/PacketReader.h"
#include "platform/bluetooth/capture/WireOctets.h"

namespace platform {
namespace {

using namespace btsnoop;

class BtsnoopReader : public PacketReader {
 public:
  BtsnoopReader(CaptureBuffer& buffer, CaptureLink link) : PacketReader(buffer), link_(link) {}

  Next next(CapturePacket& packet, std::string& fault) override {
    const DataView header = buffer().peek(kRecordHeader);
    if (header.empty()) return Next::end;
    if (header.size() < kRecordHeader) return cutIn("header", fault);
    const uint64_t length = wire::bigEndian(header, 4, 4);
    packet.flags = static_cast<uint32_t>(wire::bigEndian(header, 8, 4));
    // Unsigned, so that a nonsense clock wraps round instead of overflowing.
    packet.time =
        believableDate(Date(Date::duration(static_cast<int64_t>(wire::bigEndian(header, 16, 8) - kEpoch))));
    packet.link = link_;
    buffer().drop(kRecordHeader);
    return takeOctets(length, packet, fault);
  }

 private:
  CaptureLink link_;
};

CaptureLink linkOf(uint64_t dataLink) {
  switch (dataLink) {
    case kLinkH1:
      return CaptureLink::h1;
    case kLinkH4:
      return CaptureLink::h4;
    case kLinkMonitor:
      return CaptureLink::monitor;
    default:
      return CaptureLink::unsupported;
  }
}

}  // namespace

Result<std::unique_ptr<PacketReader>> openBtsnoop(CaptureBuffer& buffer) {
  const DataView header = buffer.peek(kFileHeader);
  if (!textOf(header).starts_with(kMagic)) return std::unique_ptr<PacketReader>();
  if (header.size() < kFileHeader) return Error{.text = "ends inside its btsnoop header"};
  const uint64_t version = wire::bigEndian(header, 8, 4);
  const uint64_t dataLink = wire::bigEndian(header, 12, 4);
  const CaptureLink link = linkOf(dataLink);
  if (version != kVersion)
    return Error{.text = fmt::format("is btsnoop of version {}, which is not supported", version)};
  if (link == CaptureLink::unsupported)
    return Error{.text = fmt::format("is btsnoop with data link {}, which is not supported", dataLink)};
  buffer.drop(kFileHeader);
  return std::make_unique<BtsnoopReader>(buffer, link);
}

}  // namespace platform
