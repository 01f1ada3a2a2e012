#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/bluetooth/ADStructures.h"
#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBCentralManager.h"

namespace platform {

/// A report in the form in which centrals deliver it.
struct MergedAdvertisement {
  CBPeripheral peripheral;
  CBAdvertisementData data;
};

/// Makes advertisements of reports: each is merged with the newest report of the other kind (advertisement or
/// scan response) from the same address. Its own fields come first, what it lacks is filled in from the
/// other. Service UUIDs of the advertisement stand before those of the scan response, which are added where
/// they are new. Connectable is what the newest advertisement says. Anonymous reports stay alone.
///
/// Keeps the newest reports of as many addresses as its capacity says and forgets the least recently heard.
/// A report with the same octets as before costs a comparison.
///
/// Threads: one at a time; what it returns never changes and may be shared.
class AdvertisementMerger {
 public:
  static constexpr std::size_t kDefaultCapacity = 20'000;

  explicit AdvertisementMerger(std::size_t capacity = kDefaultCapacity);

  /// Never null.
  std::shared_ptr<const MergedAdvertisement> merge(const AdvertisingReport& report);
  std::size_t addressCount() const { return slots_.size(); }
  /// Forgets every report, as when a scan has ended: what was heard then is not news with what is heard next.
  void clear();

 private:
  using Merged = std::shared_ptr<const MergedAdvertisement>;
  using Slot = uint32_t;
  static constexpr Slot kNone = UINT32_MAX;

  struct Side {
    Data octets;
    Merged merged;  ///< of the newest report of this side; null when out of date
  };
  struct Entry {
    uint64_t key = 0;
    Slot newer = kNone;
    Slot older = kNone;
    bool isConnectable = false;
    std::array<Side, 2> sides;  ///< advertisement, scan response
  };

  Entry& entryFor(uint64_t key);
  Slot slotToUse();
  void unlink(Slot slot);
  void linkNewest(Slot slot);
  Merged build(const BluetoothAddress& address, const Entry& entry, std::size_t own);

  std::size_t capacity_;
  std::unordered_map<uint64_t, Slot> slots_;
  std::vector<Entry> entries_;
  Slot newest_ = kNone;
  Slot oldest_ = kNone;
  std::array<ADStructures, 2> structures_;
};

}  // namespace platform
