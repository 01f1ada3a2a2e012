#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/bluetooth/CBCentralManager.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/foundation/Data.h"

namespace platform {

/// The AD types that matter here (Bluetooth Assigned Numbers, 2.3).
enum class ADType : uint8_t {
  flags = 0x01,
  incompleteUUIDs16 = 0x02,
  completeUUIDs16 = 0x03,
  incompleteUUIDs32 = 0x04,
  completeUUIDs32 = 0x05,
  incompleteUUIDs128 = 0x06,
  completeUUIDs128 = 0x07,
  shortenedLocalName = 0x08,
  completeLocalName = 0x09,
  txPowerLevel = 0x0A,
  serviceData16 = 0x16,
  serviceData32 = 0x20,
  serviceData128 = 0x21,
  manufacturerData = 0xFF,
};

/// What the AD structures of one report say (Bluetooth Core, Vol 3, Part C, 11, and its Supplement,
/// Part A). The first structure of a kind counts, except that UUID lists add up. A structure
/// without room for what its type promises is passed over. Views lend from the octets that were read; an
/// object can be read into again and keeps its buffers.
class ADStructures {
 public:
  std::optional<uint8_t> flags;                          ///< first octet
  std::vector<CBUUID> serviceUUIDs;                      ///< in the order sent, repetitions kept
  std::optional<std::string_view> localName;             ///< octets as sent, complete or shortened
  std::optional<int8_t> txPowerLevel;                    ///< dBm
  std::vector<std::pair<CBUUID, DataView>> serviceData;  ///< in the order sent, one for each UUID
  std::optional<DataView> manufacturerData;              ///< may be shorter than a company identifier

  /// Forgets what was read before and reads anew. False when a structure runs past the end, which ends the
  /// reading; what came before it counts. A length of zero ends it too, as intended by the sender.
  bool read(DataView octets);
  void clear();

  /// Adds to `data` what it lacks, service UUIDs and connectability left aside.
  void fill(CBAdvertisementData& data) const;

 private:
  void readStructure(uint8_t type, DataView value);
  void readUUIDs(DataView value, std::size_t width);
  void readServiceData(DataView value, std::size_t width);
};

}  // namespace platform
