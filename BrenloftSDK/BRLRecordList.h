#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLGrowingList.h"
#include "platform/foundation/Export.h"

/// A text with its hash, for who looks it up more than once. Lent as long as the text lives.
struct BRLHashedText {
  // NOLINTNEXTLINE(google-explicit-constructor): any text will do
  BRLHashedText(const std::convertible_to<std::string_view> auto& given)
      : text(given), hash(std::hash<std::string_view>{}(text)) {}

  operator std::string_view() const { return text; }  // NOLINT(google-explicit-constructor)

  std::string_view text;
  std::size_t hash;
};

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

  struct Match {
    size_t number;
    bool isLast;  ///< in the whole list, at that moment
  };

  /// The first record, from `from` on and below `end`, that has these properties. Costs the same however long
  /// the list is, when `from` is 0 or follows such a record.
  std::optional<Match> find(Identity identity, const BRLHashedText& uuid, int64_t major, int64_t minor,
                            size_t from, size_t end) const;

  /// Returns the record's number, its index.
  size_t append(Record record);

 private:
  struct Index;

  BRLGrowingList<Record> list_;
  std::unique_ptr<Index> index_;
};
