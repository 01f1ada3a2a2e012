#pragma once

#include <memory>
#include <string>

#include "platform/bluetooth/capture/CaptureBuffer.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Error.h"

namespace platform {

/// How the packets of a capture are wrapped.
enum class CaptureLink : uint8_t {
  unsupported,
  h1,               ///< HCI packets; their kind and direction stand beside them (btsnoop 1001)
  h4,               ///< HCI packets behind their kind (btsnoop 1002, pcap 187)
  h4Direction,      ///< the same behind a direction (pcap 201)
  monitor,          ///< Linux monitor; adapter and opcode stand beside the packet (btsnoop 2001)
  monitorHeader,    ///< Linux monitor behind adapter and opcode (pcap 254)
  linkLayer,        ///< link-layer packets (pcap 251)
  linkLayerHeader,  ///< the same behind a radio header (pcap 256)
  nordic,           ///< the same behind the header of a Nordic sniffer (pcap 272)
};

/// Of a link type of pcap and pcapng.
CaptureLink captureLinkOfPcap(uint32_t linkType);

/// Clocks of phones can say anything; instants outside the years 1 to 9999 are moved to the nearest inside.
Date believableDate(Date date);

struct CapturePacket {
  Date time;
  CaptureLink link = CaptureLink::unsupported;
  /// btsnoop keeps these beside its packets; received is taken for granted elsewhere.
  uint32_t flags = kReceivedEvent;
  uint32_t channel = 0;  ///< tells the interfaces of a file apart
  DataView octets;       ///< lent until the next packet is read

  static constexpr uint32_t kReceived = 1;
  static constexpr uint32_t kReceivedEvent = 3;
};

/// Takes the packets out of one kind of capture file. What a file announces is never trusted with memory.
///
/// Threads: one at a time.
class PacketReader {
 public:
  enum class Next {
    packet,   ///< a packet is there
    skipped,  ///< the packet is of no use, or its fault leaves the ones behind it readable
    end,      ///< nothing more can be read
  };
  /// No packet of any supported link is longer.
  static constexpr std::size_t kMaximumLength = 1U << 17U;

  explicit PacketReader(CaptureBuffer& buffer) : buffer_(buffer) {}
  virtual ~PacketReader() = default;

  /// Reads on. The packet's time stays as it was where the file gives none. `fault` says what is wrong.
  virtual Next next(CapturePacket& packet, std::string& fault) = 0;

 protected:
  CaptureBuffer& buffer() { return buffer_; }
  /// A packet's octets, once its header was read.
  Next takeOctets(uint64_t length, CapturePacket& packet, std::string& fault);
  /// The fault of a file that ends inside a record.
  static Next cutIn(const char* where, std::string& fault);

 private:
  CaptureBuffer& buffer_;
};

// Each recognises its file by the first octets and reads the header. Without a reader the file is of
// another kind.
Result<std::unique_ptr<PacketReader>> openBtsnoop(CaptureBuffer& buffer);
Result<std::unique_ptr<PacketReader>> openPcap(CaptureBuffer& buffer);
Result<std::unique_ptr<PacketReader>> openPcapng(CaptureBuffer& buffer);

}  // namespace platform
