#include "BrenloftSDK/BRLLastHeard.h"

#include <limits>

void BRLLastHeard::add(Entry entry) {
  const std::scoped_lock lock(mutex_);
  seconds_[entry.second].push_back(entry.number);
}

std::optional<BRLLastHeard::Entry> BRLLastHeard::take(std::size_t begin, std::size_t end, int64_t cutoff) {
  const std::scoped_lock lock(mutex_);
  while (!seconds_.empty() && seconds_.begin()->first <= cutoff) {
    const auto& [second, numbers] = *seconds_.begin();
    for (const std::size_t number : numbers) due_.emplace(number, second);
    seconds_.erase(seconds_.begin());
  }
  const auto first = due_.lower_bound({begin, std::numeric_limits<int64_t>::min()});
  if (first == due_.end() || first->first >= end) return std::nullopt;
  const Entry entry{first->first, first->second};
  due_.erase(first);
  return entry;
}
