#include "BrenloftSDK/BRLRecordList.h"

#include <algorithm>
#include <array>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/foundation/Mutex.h"

namespace {

using Identity = BRLRecordList::Identity;
using Number = uint32_t;  // four billion records fit into no memory
constexpr Number kNone = std::numeric_limits<Number>::max();
constexpr std::array kIdentities{Identity::uuid, Identity::uuidAndMajor, Identity::uuidMajorAndMinor};

struct Key {
  std::string_view uuid;
  int64_t major;
  int64_t minor;
  size_t hash;
};

Key keyOf(Identity identity, const BRLHashedText& uuid, int64_t major, int64_t minor) {
  if (identity == Identity::uuid) major = 0;
  if (identity != Identity::uuidMajorAndMinor) minor = 0;
  constexpr uint64_t kMix = 0x9E3779B97F4A7C15;
  const auto numbers = static_cast<uint64_t>(major) << 32 ^ static_cast<uint64_t>(minor);
  return {uuid.text, major, minor, (uuid.hash ^ numbers * kMix) * kMix >> 32};
}

// Records by the properties of one identity. A slot holds the last record of its key, and each record the
// number of the next one of its key, the last one that of the first. Takes in new records when it is asked.
class Table {
 public:
  Table(const BRLGrowingList<BRLRecordList::Record>& list, Identity identity)
      : list_(list), identity_(identity) {}

  std::optional<BRLRecordList::Match> find(const Key& key, size_t from, size_t end) {
    while (next_.size() < list_.size()) add(static_cast<Number>(next_.size()));
    const Number last = slots_.empty() ? kNone : slots_[slotOf(key)];
    if (last == kNone || last < from) return std::nullopt;
    Number number = from > 0 && has(from - 1, key) ? next_[from - 1] : next_[last];
    while (number < from) number = next_[number];
    if (number >= end) return std::nullopt;
    return BRLRecordList::Match{number, number == last};
  }

 private:
  // Records come in order; one without a uuid stands for nothing.
  void add(Number number) {
    next_.push_back(number);
    if (!list_[number]->uuid()) return;
    if (++used_ * 2 > slots_.size()) return rebuild();
    put(number);
  }
  Key keyAt(size_t number) const {
    const BRLBeaconDataModel& record = *list_[number];
    return keyOf(identity_, *record.uuid(), record.major(), record.minor());
  }
  bool has(size_t number, const Key& key) const {
    const BRLBeaconDataModel& record = *list_[number];
    return record.uuid() == key.uuid && (identity_ == Identity::uuid || record.major() == key.major) &&
           (identity_ != Identity::uuidMajorAndMinor || record.minor() == key.minor);
  }
  size_t slotOf(const Key& key) const {
    const size_t mask = slots_.size() - 1;
    size_t slot = key.hash & mask;
    while (slots_[slot] != kNone && !has(slots_[slot], key)) slot = (slot + 1) & mask;
    return slot;
  }
  void put(Number number) {
    Number& last = slots_[slotOf(keyAt(number))];
    if (last != kNone) next_[number] = std::exchange(next_[last], number);
    last = number;
  }
  void rebuild() {
    constexpr size_t kFewest = 16;
    slots_.assign(std::max(kFewest, slots_.size() * 2), kNone);
    for (Number number = 0; number < next_.size(); ++number) {
      next_[number] = number;
      if (list_[number]->uuid()) put(number);
    }
  }

  const BRLGrowingList<BRLRecordList::Record>& list_;
  const Identity identity_;
  std::vector<Number> slots_;  // a power of two, at least half of it free
  std::vector<Number> next_;
  size_t used_ = 0;  // at most: records of one key take one slot
};

}  // namespace

struct BRLRecordList::Index {
  explicit Index(const BRLGrowingList<Record>& list)
      : tables{Table(list, kIdentities[0]), Table(list, kIdentities[1]), Table(list, kIdentities[2])} {}

  platform::Mutex mutex;
  std::array<Table, kIdentities.size()> tables;
};

BRLRecordList::BRLRecordList() : index_(std::make_unique<Index>(list_)) {}
BRLRecordList::~BRLRecordList() = default;

std::optional<BRLRecordList::Match> BRLRecordList::find(Identity identity, const BRLHashedText& uuid,
                                                        int64_t major, int64_t minor, size_t from,
                                                        size_t end) const {
  const std::scoped_lock lock(index_->mutex);
  return index_->tables[static_cast<size_t>(identity)].find(keyOf(identity, uuid, major, minor), from, end);
}

size_t BRLRecordList::append(Record record) {
  return list_.append(std::move(record));
}
