#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/foundation/Mutex.h"

/// Where the lost check looks: the present records of a list, by the second in which each was last heard.
///
/// A present record has an entry at the second of its date or at an earlier one. So being heard again, which
/// only makes the date later, changes nothing here; the check that comes upon the entry moves it on. Whatever
/// makes a record present or its date earlier adds an entry. One that has become stale is left where it is:
/// the record knows the second of its own.
///
/// Threads: any.
class BRLLastHeard {
 public:
  struct Entry {
    std::size_t number;  ///< of the record in the list
    int64_t second;      ///< since 1970
  };

  void add(Entry entry);
  /// Takes out the first entry, in order of the list, of the records from `begin` to below `end` that may
  /// have been silent since `cutoff`.
  std::optional<Entry> take(std::size_t begin, std::size_t end, int64_t cutoff);

 private:
  platform::Mutex mutex_;  // guards what follows
  std::map<int64_t, std::vector<std::size_t>> seconds_;
  std::set<std::pair<std::size_t, int64_t>> due_;  // no longer in `seconds_`: a check has asked for them
};
