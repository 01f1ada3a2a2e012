#include "platform/bluetooth/AdvertisementMerger.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kAdvertisement = 0;
constexpr std::size_t kScanResponse = 1;

void addServiceUUIDs(const std::vector<CBUUID>& advertised, const std::vector<CBUUID>& answered,
                     std::optional<std::vector<CBUUID>>& all) {
  if (advertised.empty() && answered.empty()) return all.reset();
  if (!all) all.emplace();
  all->assign(advertised.begin(), advertised.end());
  if (answered.empty()) return;
  std::vector<CBUUID> known = advertised;
  std::ranges::sort(known);
  std::ranges::copy_if(answered, std::back_inserter(*all),
                       [&](const CBUUID& uuid) { return !std::ranges::binary_search(known, uuid); });
}

/// Most often what is replaced is as long.
void copy(DataView heard, Data& kept) {
  if (kept.size() != heard.size())
    kept.assign(heard.begin(), heard.end());
  else if (!heard.empty())
    std::memcpy(kept.data(), heard.data(), heard.size());
}

void assign(const std::optional<DataView>& read, std::optional<Data>& kept) {
  if (!read) return kept.reset();
  if (!kept) kept.emplace();
  copy(*read, *kept);
}

bool isSame(const Data& kept, DataView heard) {
  return kept.size() == heard.size() &&
         (kept.empty() || std::memcmp(kept.data(), heard.data(), kept.size()) == 0);
}

/// To write to: the one that was kept, unless somebody else still holds it.
void renew(std::shared_ptr<MergedAdvertisement>& merged) {
  if (merged.use_count() != 1) {
    merged = std::make_shared<MergedAdvertisement>();
    return;
  }
  // Its last other holder may have been on another thread: counting once more orders what is written now
  // behind what was read there.
  const std::shared_ptr<MergedAdvertisement> ordered = merged;
}

}  // namespace

AdvertisementMerger::AdvertisementMerger(Capacity capacity)
    : capacity_{std::max<std::size_t>(capacity.addresses, 1), capacity.octets} {}

std::shared_ptr<const MergedAdvertisement> AdvertisementMerger::merge(const AdvertisingReport& report) {
  const std::size_t own = isScanResponse(report.kind) ? kScanResponse : kAdvertisement;
  if (report.address.isAnonymous()) {
    Entry alone;
    alone.isConnectable = isConnectable(report.kind);
    alone.sides[own].octets = toData(report.data);
    build(report.address, alone, own);
    return alone.sides[own].merged;
  }
  Entry& entry = entryFor(report.address.key());
  Side& side = entry.sides[own];
  if (own == kAdvertisement && entry.isConnectable != isConnectable(report.kind)) {
    entry.isConnectable = isConnectable(report.kind);
    entry.change();
  }
  if (!isSame(side.octets, report.data)) keep(entry, own, report.data);
  if (!side.isCurrent) build(report.address, entry, own);
  return side.merged;
}

void AdvertisementMerger::clear() {
  slots_.clear();
  entries_.clear();
  free_.clear();
  octets_ = 0;
  newest_ = oldest_ = kNone;
}

/// The entry is the newest, so it stays.
void AdvertisementMerger::keep(Entry& entry, std::size_t own, DataView octets) {
  octets_ -= entry.octets();
  copy(octets, entry.sides[own].octets);
  octets_ += entry.octets();
  entry.change();
  while (octets_ > capacity_.octets && oldest_ != newest_) forgetOldest();
}

void AdvertisementMerger::build(const BluetoothAddress& address, Entry& entry, std::size_t own) {
  for (std::size_t i = 0; i < structures_.size(); ++i) structures_[i].read(entry.sides[i].octets);
  const ADStructures& first = structures_[own];
  const ADStructures& second = structures_[1 - own];
  Side& side = entry.sides[own];
  renew(side.merged);
  std::string& identifier = side.merged->peripheral.identifier;
  if (identifier.empty() && !address.isAnonymous()) identifier = address.text();
  CBAdvertisementData& data = side.merged->data;
  assign(first.manufacturerData ? first.manufacturerData : second.manufacturerData, data.manufacturerData);
  data.localName.reset();
  data.txPowerLevel.reset();
  data.serviceData.clear();
  first.fill(data);
  if (!entry.sides[1 - own].octets.empty()) second.fill(data);
  addServiceUUIDs(structures_[kAdvertisement].serviceUUIDs, structures_[kScanResponse].serviceUUIDs,
                  data.serviceUUIDs);
  data.isConnectable = entry.isConnectable;
  side.isCurrent = true;
}

AdvertisementMerger::Entry& AdvertisementMerger::entryFor(uint64_t key) {
  const auto [found, isNew] = slots_.try_emplace(key, kNone);
  if (isNew) {
    found->second = slotToUse();
    entries_[found->second].key = key;
    linkNewest(found->second);
  } else if (found->second != newest_) {
    unlink(found->second);
    linkNewest(found->second);
  }
  return entries_[found->second];
}

AdvertisementMerger::Slot AdvertisementMerger::slotToUse() {
  if (slots_.size() > capacity_.addresses) forgetOldest();
  if (free_.empty()) {
    entries_.emplace_back();
    return static_cast<Slot>(entries_.size() - 1);
  }
  const Slot slot = free_.back();
  free_.pop_back();
  return slot;
}

void AdvertisementMerger::forgetOldest() {
  const Slot slot = oldest_;
  unlink(slot);
  slots_.erase(entries_[slot].key);
  octets_ -= entries_[slot].octets();
  entries_[slot] = Entry{};
  free_.push_back(slot);
}

void AdvertisementMerger::unlink(Slot slot) {
  const Entry& entry = entries_[slot];
  (entry.newer == kNone ? newest_ : entries_[entry.newer].older) = entry.older;
  (entry.older == kNone ? oldest_ : entries_[entry.older].newer) = entry.newer;
}

void AdvertisementMerger::linkNewest(Slot slot) {
  entries_[slot].newer = kNone;
  entries_[slot].older = newest_;
  (newest_ == kNone ? oldest_ : entries_[newest_].newer) = slot;
  newest_ = slot;
}

}  // namespace platform
