#include "platform/bluetooth/AdvertisementMerger.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kAdvertisement = 0;
constexpr std::size_t kScanResponse = 1;

void addServiceUUIDs(const ADStructures& advertisement, const ADStructures& scanResponse,
                     CBAdvertisementData& data) {
  const std::vector<CBUUID>& first = advertisement.serviceUUIDs;
  if (first.empty() && scanResponse.serviceUUIDs.empty()) return;
  std::vector<CBUUID>& all = data.serviceUUIDs.emplace();
  all.reserve(first.size() + scanResponse.serviceUUIDs.size());
  all = first;
  std::copy_if(
      scanResponse.serviceUUIDs.begin(), scanResponse.serviceUUIDs.end(), std::back_inserter(all),
      [&](const CBUUID& uuid) { return std::find(first.begin(), first.end(), uuid) == first.end(); });
}

bool isSame(const Data& kept, DataView heard) {
  return std::equal(kept.begin(), kept.end(), heard.begin(), heard.end());
}

}  // namespace

AdvertisementMerger::AdvertisementMerger(std::size_t capacity)
    : capacity_(std::max<std::size_t>(capacity, 1)) {}

std::shared_ptr<const MergedAdvertisement> AdvertisementMerger::merge(const AdvertisingReport& report) {
  const std::size_t own = isScanResponse(report.kind) ? kScanResponse : kAdvertisement;
  if (report.address.isAnonymous()) {
    Entry alone;
    alone.isConnectable = isConnectable(report.kind);
    alone.sides[own].octets = toData(report.data);
    return build(report.address, alone, own);
  }
  Entry& entry = entryFor(report.address.key());
  Side& side = entry.sides[own];
  Side& other = entry.sides[1 - own];
  if (own == kAdvertisement && entry.isConnectable != isConnectable(report.kind)) {
    entry.isConnectable = isConnectable(report.kind);
    side.merged = other.merged = nullptr;
  }
  if (!isSame(side.octets, report.data)) {
    side.octets.assign(report.data.begin(), report.data.end());
    side.merged = other.merged = nullptr;
  }
  if (!side.merged) side.merged = build(report.address, entry, own);
  return side.merged;
}

void AdvertisementMerger::clear() {
  slots_.clear();
  entries_.clear();
  newest_ = oldest_ = kNone;
}

AdvertisementMerger::Merged AdvertisementMerger::build(const BluetoothAddress& address, const Entry& entry,
                                                       std::size_t own) {
  for (std::size_t i = 0; i < structures_.size(); ++i) structures_[i].read(entry.sides[i].octets);
  auto merged = std::make_shared<MergedAdvertisement>();
  if (!address.isAnonymous()) merged->peripheral.identifier = address.text();
  structures_[own].fill(merged->data);
  structures_[1 - own].fill(merged->data);
  addServiceUUIDs(structures_[kAdvertisement], structures_[kScanResponse], merged->data);
  merged->data.isConnectable = entry.isConnectable;
  return merged;
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
  if (entries_.size() < capacity_) {
    entries_.emplace_back();
    return static_cast<Slot>(entries_.size() - 1);
  }
  const Slot slot = oldest_;
  unlink(slot);
  slots_.erase(entries_[slot].key);
  entries_[slot] = Entry{};
  return slot;
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
