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
/// Keeps the newest reports of as many addresses as its capacity says, and no more octets of them than that,
/// and forgets the least recently heard. A report with the same octets as before costs a comparison, and
/// other octets no memory where what they replace is held by nobody any more.
///
/// Threads: one at a time; what it returns never changes and may be shared.
class AdvertisementMerger {
 public:
  struct Capacity {
    std::size_t addresses = 20'000;
    /// Room for all of them with a legacy advertisement and its scan response. What is made of an octet takes
    /// up to twenty times as much.
    std::size_t octets = std::size_t{2} << 20;
  };

  explicit AdvertisementMerger(Capacity capacity);
  AdvertisementMerger() : AdvertisementMerger(Capacity()) {}

  /// Never null.
  std::shared_ptr<const MergedAdvertisement> merge(const AdvertisingReport& report);
  std::size_t addressCount() const { return slots_.size(); }
  /// Forgets every report, as when a scan has ended: what was heard then is not news with what is heard next.
  void clear();

 private:
  using Merged = std::shared_ptr<MergedAdvertisement>;
  using Slot = uint32_t;
  static constexpr Slot kNone = UINT32_MAX;

  struct Side {
    Data octets;
    Merged merged;           ///< of the newest report of this side
    bool isCurrent = false;  ///< `merged` is what the octets of both sides say
  };
  struct Entry {
    uint64_t key = 0;
    Slot newer = kNone;
    Slot older = kNone;
    bool isConnectable = false;
    std::array<Side, 2> sides;  ///< advertisement, scan response

    void change() { sides[0].isCurrent = sides[1].isCurrent = false; }
    std::size_t octets() const { return sides[0].octets.capacity() + sides[1].octets.capacity(); }
  };

  Entry& entryFor(uint64_t key);
  Slot slotToUse();
  void keep(Entry& entry, std::size_t own, DataView octets);
  void forgetOldest();
  void unlink(Slot slot);
  void linkNewest(Slot slot);
  void build(const BluetoothAddress& address, Entry& entry, std::size_t own);

  const Capacity capacity_;
  std::size_t octets_ = 0;
  std::unordered_map<uint64_t, Slot> slots_;
  std::vector<Entry> entries_;
  std::vector<Slot> free_;
  Slot newest_ = kNone;
  Slot oldest_ = kNone;
  std::array<ADStructures, 2> structures_;
};

}  // namespace platform
