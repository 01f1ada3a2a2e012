#include "BrenloftSDK/BRLRecordList.h"

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

// Text keys point into the records, whose uuid never changes.
struct Key {
  std::string_view uuid;
  int64_t major = 0;
  int64_t minor = 0;
  friend bool operator==(const Key&, const Key&) = default;
};

struct KeyHash {
  size_t operator()(const Key& key) const {
    constexpr uint64_t kMix = 0x9E3779B97F4A7C15;
    const auto numbers = (static_cast<uint64_t>(key.major) << 32) ^ static_cast<uint64_t>(key.minor);
    return std::hash<std::string_view>{}(key.uuid) ^ static_cast<size_t>((numbers + 1) * kMix);
  }
};

constexpr std::array kIdentities{BRLRecordList::Identity::uuid, BRLRecordList::Identity::uuidAndMajor,
                                 BRLRecordList::Identity::uuidMajorAndMinor};

Key keyOf(BRLRecordList::Identity identity, std::string_view uuid, int64_t major, int64_t minor) {
  switch (identity) {
    case BRLRecordList::Identity::uuid:
      return {uuid, 0, 0};
    case BRLRecordList::Identity::uuidAndMajor:
      return {uuid, major, 0};
    case BRLRecordList::Identity::uuidMajorAndMinor:
      break;
  }
  return {uuid, major, minor};
}

}  // namespace

// Indices of the records of each identity, ascending.
struct BRLRecordList::Index {
  mutable std::shared_mutex mutex;
  std::array<std::unordered_map<Key, std::vector<size_t>, KeyHash>, kIdentities.size()> maps;
};

BRLRecordList::BRLRecordList() : index_(std::make_unique<Index>()) {}
BRLRecordList::~BRLRecordList() = default;

std::optional<size_t> BRLRecordList::find(Identity identity, std::string_view uuid, int64_t major,
                                          int64_t minor, size_t from, size_t end) const {
  const std::shared_lock lock(index_->mutex);
  const auto& map = index_->maps[static_cast<size_t>(identity)];
  const auto entry = map.find(keyOf(identity, uuid, major, minor));
  if (entry == map.end()) return std::nullopt;
  const auto& indices = entry->second;
  const auto next = std::lower_bound(indices.begin(), indices.end(), from);
  if (next == indices.end() || *next >= end) return std::nullopt;
  return *next;
}

size_t BRLRecordList::append(Record record) {
  const BRLBeaconDataModel& added = *record;
  const std::scoped_lock lock(index_->mutex);
  const size_t index = list_.append(std::move(record));
  if (!added.uuid()) return index;  // equals no beacon's text
  for (const Identity identity : kIdentities) {
    const Key key = keyOf(identity, *added.uuid(), added.major(), added.minor());
    index_->maps[static_cast<size_t>(identity)][key].push_back(index);
  }
  return index;
}
