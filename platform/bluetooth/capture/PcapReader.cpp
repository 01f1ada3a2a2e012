#include <optional>

#include <fmt/format.h>

#include "platform/bluetooth/capture/PacketReader.h"
#include "platform/bluetooth/capture/WireOctets.h"

// The classic capture file of libpcap: a header of 24 octets, then records behind 16 octets each.

namespace platform {
namespace {

constexpr std::size_t kPcapHeader = 24;
constexpr std::size_t kRecordHeader = 16;

struct Flavour {
  wire::FileOrder order;
  bool isNanoseconds = false;
};

std::optional<Flavour> flavourOf(DataView header) {
  if (header.size() < 4) return std::nullopt;
  for (const bool isBigEndian : {false, true}) {
    const wire::FileOrder order{isBigEndian};
    const uint32_t magic = order.u32(header, 0);
    if (magic == 0xA1B2C3D4) return Flavour{order, false};
    if (magic == 0xA1B23C4D) return Flavour{order, true};
  }
  return std::nullopt;
}

class PcapReader : public PacketReader {
 public:
  PcapReader(CaptureBuffer& buffer, Flavour flavour, CaptureLink link)
      : PacketReader(buffer), flavour_(flavour), link_(link) {}

  Next next(CapturePacket& packet, std::string& fault) override {
    const DataView header = buffer().peek(kRecordHeader);
    if (header.empty()) return Next::end;
    if (header.size() < kRecordHeader) return cutIn("header", fault);
    const auto& order = flavour_.order;
    const int64_t fraction = order.u32(header, 4);
    packet.time = Date(std::chrono::seconds(order.u32(header, 0)) +
                       std::chrono::microseconds(flavour_.isNanoseconds ? fraction / 1000 : fraction));
    packet.link = link_;
    const uint32_t length = order.u32(header, 8);
    buffer().drop(kRecordHeader);
    return takeOctets(length, packet, fault);
  }

 private:
  Flavour flavour_;
  CaptureLink link_;
};

}  // namespace

Result<std::unique_ptr<PacketReader>> openPcap(CaptureBuffer& buffer) {
  const DataView header = buffer.peek(kPcapHeader);
  const auto flavour = flavourOf(header);
  if (!flavour) return std::unique_ptr<PacketReader>();
  if (header.size() < kPcapHeader) return Error{.text = "ends inside its pcap header"};
  const uint32_t linkType = flavour->order.u32(header, 20) & 0xFFFF;  // above it stands the FCS length
  const CaptureLink link = captureLinkOfPcap(linkType);
  if (link == CaptureLink::unsupported)
    return Error{.text = fmt::format("is pcap with link type {}, which is not supported", linkType)};
  buffer.drop(kPcapHeader);
  return std::make_unique<PcapReader>(buffer, *flavour, link);
}

}  // namespace platform
