#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLGrowingList.h"
#include "platform/foundation/Export.h"

/// All known beacons in the order in which they were found. Records are never removed.
///
/// Thread safety: any thread may read or append; a walk over `view()` needs no lock and sees every record
/// that was there when it began. Delegates and applications only read.
class BRL_EXPORT BRLRecordList {
 public:
  using Record = std::shared_ptr<BRLBeaconDataModel>;
  using View = BRLGrowingList<Record>::View;
  using Iterator = BRLGrowingList<Record>::Iterator;

  BRLRecordList();
  ~BRLRecordList();

  size_t size() const { return list_.size(); }
  bool empty() const { return size() == 0; }
  View view() const { return list_.view(); }
  const Record& operator[](size_t index) const { return list_[index]; }
  Iterator begin() const { return view().begin(); }
  Iterator end() const { return view().end(); }

  /// Which of the properties that never change tell records apart.
  enum class Identity { uuid, uuidAndMajor, uuidMajorAndMinor };

  /// The index of the first record, from `from` on and below `end`, that has these properties. Costs the same
  /// however long the list is.
  std::optional<size_t> find(Identity identity, std::string_view uuid, int64_t major, int64_t minor,
                             size_t from, size_t end) const;

  /// Returns the record's number, its index.
  size_t append(Record record);

 private:
  struct Index;

  BRLGrowingList<Record> list_;
  std::unique_ptr<Index> index_;
};
