#include "platform/bluetooth/hci/H4Decoder.h"

#include <optional>

#include "platform/bluetooth/hci/HCIPackets.h"

namespace platform::hci {
namespace {

enum class Fit { tooShort, whole, nonsense };

struct Measure {
  Fit fit = Fit::nonsense;
  std::size_t size = 0;
};

// A host without connections gets no data to speak of; a larger packet is garbage that looks like one.
constexpr std::size_t kLargestDataPacket = 2048;

/// How long the packet at the start is, judged by its type and header alone.
Measure measure(DataView octets) {
  if (octets.empty()) return {Fit::tooShort, 0};
  if (!headerSize(octetAt(octets, 0))) return {};
  const auto size = packetSize(octets);
  if (!size) return {Fit::tooShort, 0};
  if (*size > kLargestDataPacket) return {};
  return {octets.size() < *size ? Fit::tooShort : Fit::whole, *size};
}

/// Stricter, for octets that follow garbage: an event that this host can expect, followed by a packet's
/// start.
Measure measureAfterGarbage(DataView octets) {
  if (octets.empty()) return {Fit::tooShort, 0};
  if (octetAt(octets, 0) != kEventPacket) return {};
  if (octets.size() < 4) return {Fit::tooShort, 0};
  if (!isPlausibleEvent(octetAt(octets, 1), octetAt(octets, 2), octetAt(octets, 3))) return {};
  const Measure result = measure(octets);
  if (result.fit == Fit::whole && octets.size() > result.size && !headerSize(octetAt(octets, result.size))) {
    return {};
  }
  return result;
}

}  // namespace

DataView H4Decoder::takePackets(DataView octets, const PacketHandler& handler) {
  while (!octets.empty()) {
    const Measure next = inSync_ ? measure(octets) : measureAfterGarbage(octets);
    if (next.fit == Fit::tooShort) break;
    if (next.fit == Fit::nonsense) {
      if (!inSync_) {
        ++skipped_;
        octets = octets.subspan(1);
      }
      inSync_ = false;
      continue;
    }
    inSync_ = true;
    handler(octets.first(next.size));
    octets = octets.subspan(next.size);
  }
  return octets;
}

void H4Decoder::feed(DataView octets, const PacketHandler& handler) {
  if (rest_.empty()) {
    rest_ = toData(takePackets(octets, handler));
    return;
  }
  rest_.insert(rest_.end(), octets.begin(), octets.end());
  const Data all = std::move(rest_);
  rest_ = toData(takePackets(all, handler));
}

}  // namespace platform::hci
