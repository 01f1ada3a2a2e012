#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/bluetooth/ADStructures.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/foundation/Data.h"

namespace platform {

/// Writes AD structures, the inverse of `ADStructures`. UUIDs are sent in the shortest width that holds them,
/// one list for each run of equal width, so that their order survives. A value longer than the 254 octets of
/// a structure is cut there.
class ADBuilder {
 public:
  ADBuilder& flags(uint8_t value);
  ADBuilder& serviceUUIDs(std::span<const CBUUID> uuids);
  /// Company identifier first.
  ADBuilder& manufacturerData(DataView value);
  ADBuilder& localName(std::string_view name);
  /// dBm
  ADBuilder& txPowerLevel(int8_t level);
  ADBuilder& serviceData(const CBUUID& uuid, DataView value);
  /// Everything that `data` holds, without flags.
  ADBuilder& advertisement(const CBAdvertisementData& data);

  const Data& octets() const { return octets_; }

 private:
  void add(ADType type, DataView value);

  Data octets_;
};

}  // namespace platform
