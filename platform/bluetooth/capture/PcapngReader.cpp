#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "platform/bluetooth/capture/PacketReader.h"
#include "platform/bluetooth/capture/PcapngTime.h"
#include "platform/bluetooth/capture/WireOctets.h"

// pcapng (draft-ietf-opsawg-pcapng): sections of blocks; a block is type, length, body, length again.

namespace platform {
namespace {

constexpr uint32_t kSectionBlock = 0x0A0D0D0A;  // reads the same in both orders
constexpr uint32_t kInterfaceBlock = 1;
constexpr uint32_t kPacketBlock = 2;
constexpr uint32_t kSimplePacketBlock = 3;
constexpr uint32_t kEnhancedPacketBlock = 6;

constexpr uint32_t kOrderMagic = 0x1A2B3C4D;
constexpr std::size_t kBlockFrame = 12;  // type and both lengths
constexpr std::size_t kMaximumBlock = PacketReader::kMaximumLength + (1U << 14U);
constexpr std::size_t kMaximumInterfaces = 4096;

struct Interface {
  CaptureLink link = CaptureLink::unsupported;
  uint32_t linkType = 0;
  uint32_t snapLength = 0;  // 0: no limit
  PcapngClock clock;
  bool isReported = false;  // the line about an unsupported one was given
};

bool holdsPacket(uint32_t type) {
  return type == kPacketBlock || type == kSimplePacketBlock || type == kEnhancedPacketBlock;
}

class PcapngReader : public PacketReader {
 public:
  using PacketReader::PacketReader;

  Next next(CapturePacket& packet, std::string& fault) override {
    for (;;) {
      const DataView head = buffer().peek(8);
      if (head.empty()) return Next::end;
      if (head.size() < 8) return cutIn("header", fault);
      if (order_.u32(head, 0) == kSectionBlock && !beginSection(fault)) return Next::end;
      const auto result = readBlock(packet, fault);
      if (result) return *result;
    }
  }

  /// Takes the order of octets from the section header that comes next.
  bool beginSection(std::string& fault) {
    const DataView head = buffer().peek(kBlockFrame);
    if (head.size() < kBlockFrame) {
      cutIn("section header", fault);
      return false;
    }
    order_.isBigEndian = wire::bigEndian(head, 8, 4) == kOrderMagic;
    interfaces_.clear();
    if (order_.u32(head, 8) == kOrderMagic) return true;
    fault = "its section header has no order of octets";
    return false;
  }

 private:
  /// Nothing after a block that holds no packet.
  std::optional<Next> readBlock(CapturePacket& packet, std::string& fault) {
    const DataView head = buffer().peek(8);
    const uint32_t type = order_.u32(head, 0);
    const uint32_t length = order_.u32(head, 4);
    if (length < kBlockFrame || length % 4 != 0) {
      fault = fmt::format("no block can have {} octets", length);
      return Next::end;
    }
    const bool isWanted = type == kInterfaceBlock || holdsPacket(type);
    if (!isWanted || length > kMaximumBlock) return passOver(type, length, fault);
    const DataView block = buffer().peek(length);
    buffer().drop(block.size());
    if (block.size() < length) return cutAfter(length, block.size(), fault);
    if (order_.u32(block, length - 4) != length) {
      fault = "the lengths before and behind its block differ";
      return Next::end;
    }
    const DataView body = block.subspan(8, length - kBlockFrame);
    if (type != kInterfaceBlock) return readPacket(type, body, packet, fault);
    if (interfaces_.size() < kMaximumInterfaces) interfaces_.push_back(readInterface(body));
    return std::nullopt;
  }

  std::optional<Next> passOver(uint32_t type, uint32_t length, std::string& fault) {
    const uint64_t found = buffer().skip(length);
    if (found < length) return cutAfter(length, found, fault);
    if (!holdsPacket(type)) return std::nullopt;
    fault = fmt::format("{} octets are more than a packet can have", length);
    return Next::skipped;
  }

  static Next cutAfter(uint32_t length, uint64_t found, std::string& fault) {
    fault = fmt::format("its block announces {} octets and the file ends after {}", length, found);
    return Next::end;
  }

  Interface readInterface(DataView body) const {
    Interface interface;
    if (body.size() < 8) return interface;
    interface.linkType = order_.u16(body, 0);
    interface.link = captureLinkOfPcap(interface.linkType);
    interface.snapLength = order_.u32(body, 4);
    for (DataView rest = body.subspan(8); rest.size() >= 4;) {
      const uint16_t code = order_.u16(rest, 0);
      const std::size_t length = order_.u16(rest, 2);
      if (code == 0 || rest.size() < 4 + length) break;
      if (code == 9 && length == 1) interface.clock.resolution = wire::octet(rest, 4);
      if (code == 14 && length == 8)
        interface.clock.offsetSeconds = static_cast<int64_t>(order_.number(rest, 4, 8));
      rest = rest.subspan(std::min(rest.size(), 4 + (length + 3) / 4 * 4));
    }
    return interface;
  }

  Next readPacket(uint32_t type, DataView body, CapturePacket& packet, std::string& fault) {
    if (type == kSimplePacketBlock) return readSimplePacket(body, packet, fault);
    if (body.size() < 20) return tooShort(fault);
    const uint32_t number = type == kPacketBlock ? order_.u16(body, 0) : order_.u32(body, 0);
    const uint64_t ticks = uint64_t{order_.u32(body, 4)} << 32 | order_.u32(body, 8);
    if (number < interfaces_.size()) packet.time = interfaces_[number].clock.dateOf(ticks);
    return lend(number, body.subspan(20), order_.u32(body, 12), packet, fault);
  }

  Next readSimplePacket(DataView body, CapturePacket& packet, std::string& fault) {
    if (body.size() < 4) return tooShort(fault);
    uint32_t length = order_.u32(body, 0);
    if (!interfaces_.empty() && interfaces_[0].snapLength != 0)
      length = std::min(length, interfaces_[0].snapLength);
    return lend(0, body.subspan(4), length, packet, fault);
  }

  Next lend(uint32_t number, DataView data, uint32_t length, CapturePacket& packet, std::string& fault) {
    if (length > data.size()) {
      fault = fmt::format("it announces {} octets in a block with room for {}", length, data.size());
      return Next::skipped;
    }
    if (number >= interfaces_.size()) {
      fault = fmt::format("interface {} was not described", number);
      return Next::skipped;
    }
    Interface& interface = interfaces_[number];
    packet.link = interface.link;
    packet.channel = number;
    packet.octets = data.first(length);
    if (interface.link != CaptureLink::unsupported) return Next::packet;
    if (!std::exchange(interface.isReported, true))
      fault =
          fmt::format("interface {} has link type {}, which is not supported; its records are passed over",
                      number, interface.linkType);
    return Next::skipped;
  }

  static Next tooShort(std::string& fault) {
    fault = "its block is too short for a packet";
    return Next::skipped;
  }

  wire::FileOrder order_;
  std::vector<Interface> interfaces_;
};

}  // namespace

Result<std::unique_ptr<PacketReader>> openPcapng(CaptureBuffer& buffer) {
  const DataView head = buffer.peek(kBlockFrame);
  if (head.size() < 4 || wire::bigEndian(head, 0, 4) != kSectionBlock) return std::unique_ptr<PacketReader>();
  auto reader = std::make_unique<PcapngReader>(buffer);
  std::string fault;
  if (reader->beginSection(fault)) return reader;
  return Error{.text = head.size() < kBlockFrame ? "ends inside its pcapng header"
                                                 : "begins like pcapng without being it"};
}

}  // namespace platform
