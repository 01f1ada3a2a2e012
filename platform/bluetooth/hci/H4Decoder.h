#pragma once

#include <cstdint>
#include <functional>

#include "platform/foundation/Data.h"

namespace platform::hci {

/// Cuts a stream of octets into HCI packets (Bluetooth Core, Vol 4, Part A, 2).
///
/// Where the stream makes no sense, octets are skipped up to the next that begin an event of a kind that a
/// listening host gets, with a length that such an event can have.
/// Threads: one at a time.
class H4Decoder {
 public:
  /// A whole packet, its type first, lent for the call.
  using PacketHandler = std::function<void(DataView packet)>;

  /// Octets as they come, cut anywhere.
  void feed(DataView octets, const PacketHandler& handler);
  /// Octets that belonged to no packet, so far.
  uint64_t skippedOctets() const { return skipped_; }

 private:
  DataView takePackets(DataView octets, const PacketHandler& handler);

  Data rest_;  ///< a packet that has begun
  bool inSync_ = true;
  uint64_t skipped_ = 0;
};

}  // namespace platform::hci
