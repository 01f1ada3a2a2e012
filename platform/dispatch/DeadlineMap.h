#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <variant>
#include <vector>

#include "platform/dispatch/Dispatch.h"

namespace platform {

class TimerSource;

/// When something is due; equal instants in the order of submission.
struct Deadline {
  dispatch_time_t due;
  uint64_t order;
  // The check takes the comparison's hidden 0 for a pointer.
  // NOLINTNEXTLINE(modernize-use-nullptr)
  friend auto operator<=>(const Deadline&, const Deadline&) = default;
};

/// A block that waits for its turn on a queue.
struct PostedBlock {
  const dispatch_queue* queue;
  dispatch_block_t block;
};

/// A timer source that waits for its wake-up; `queue` as above.
struct TimerWake {
  const dispatch_queue* queue;
  std::shared_ptr<TimerSource> source;
};

using PendingWork = std::variant<PostedBlock, TimerWake>;

inline const dispatch_queue* queueOf(const PendingWork& work) {
  return std::visit([](const auto& kind) { return kind.queue; }, work);
}

/// What waits for a later instant: blocks, and at most one wake-up per timer source. A source parked at
/// DISPATCH_TIME_FOREVER is kept alive and never due. Sources know their own wake-up.
///
/// Threads: none of its own; the owner locks.
class DeadlineMap {
 public:
  using Entries = std::multimap<Deadline, PendingWork>;

  void add(Deadline deadline, PostedBlock block);
  /// Adds the wake-up of a source, or moves it.
  void wakeAt(Deadline deadline, const dispatch_queue& queue, const std::shared_ptr<TimerSource>& source);
  /// Removes the wake-up of a source and returns the reference that kept it alive.
  std::shared_ptr<TimerSource> forget(TimerSource& source);
  PendingWork take(Entries::iterator entry);
  /// Removes everything.
  std::vector<PendingWork> takeAll();
  /// The sources that have a wake-up.
  std::vector<std::shared_ptr<TimerSource>> sources() const;

  Entries::iterator begin() { return entries_.begin(); }
  Entries::iterator end() { return entries_.end(); }
  /// DISPATCH_TIME_FOREVER when nothing will be due.
  dispatch_time_t nextDue() const;
  /// The source of the first entry, when that is a wake-up that will be due; else null.
  TimerSource* firstSource() const;
  /// Entries that will be due one day.
  size_t pendingCount() const { return entries_.size() - parked_; }

 private:
  void move(Entries::iterator& entry, Deadline deadline);

  Entries entries_;
  size_t parked_ = 0;
};

}  // namespace platform
