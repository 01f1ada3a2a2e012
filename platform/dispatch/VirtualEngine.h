#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "platform/dispatch/DeadlineMap.h"
#include "platform/dispatch/TimerSource.h"
#include "platform/foundation/Mutex.h"

namespace platform {

/// The clock of virtual time and everything that waits on it.
///
/// Blocks for now stand in a line, and so do those for later as far as they come in order, as a replay's do.
/// Everything else is sorted by its deadline. All are merged by (due, order of submission).
/// Threads: any may submit; one at a time may run.
class VirtualEngine {
 public:
  explicit VirtualEngine(Date start);

  dispatch_time_t now() const { return dispatch_time_t(now_.load(std::memory_order_acquire)); }
  Date date() const;
  void setDate(Date date);
  void skip(dispatch_time_t duration);

  void post(const dispatch_queue& queue, dispatch_block_t&& block);
  void postAt(dispatch_time_t due, const dispatch_queue& queue, dispatch_block_t&& block);

  // For the timers of its queues, as TimerQueue says:
  Mutex& mutex() { return mutex_; }
  uint64_t& submissions() { return submissions_; }
  dispatch_time_t pick(dispatch_time_t want, dispatch_time_t leeway) const;
  void wakeAt(dispatch_time_t due, uint64_t order, const dispatch_queue& queue,
              const std::shared_ptr<TimerSource>& source);
  std::shared_ptr<TimerSource> forget(TimerSource& source) { return deadlines_.forget(source); }

  /// Runs what is due up to `limit`, moving the clock to each deadline; false when `stop` ended it.
  bool run(dispatch_time_t limit);
  void stop();
  /// Moves the clock to an instant, never back.
  void moveTo(dispatch_time_t instant);
  bool isCurrent(const dispatch_queue& queue) const;

  size_t pendingCount() const;
  dispatch_time_t nextDue();
  void shuffleTies(uint64_t seed);
  void fireLate(bool late);
  /// Cancels every timer and drops every block, for good.
  void end();

 private:
  struct Waiting {
    Waiting(Deadline when, const dispatch_queue& queue, dispatch_block_t&& work)
        : deadline(when), block{&queue, std::move(work)} {}

    Deadline deadline;
    PostedBlock block;
  };
  using Line = std::deque<Waiting>;

  bool runNext(dispatch_time_t limit);
  static void execute(const PostedBlock& posted) noexcept;
  static void execute(const TimerWake& wake) noexcept;
  // With the lock held:
  void add(Line& line, dispatch_time_t due, const dispatch_queue& queue, dispatch_block_t&& block);
  Line* nextLine();
  PendingWork takeShuffled(dispatch_time_t due);
  dispatch_time_t firstDue();

  std::atomic<dispatch_time_t::rep> now_{0};
  std::atomic<Date::rep> dateAtZero_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> running_{0};  // nested calls

  mutable Mutex mutex_;  // guards what follows
  uint64_t submissions_ = 0;
  Line soon_;  // both in order of their deadlines
  Line later_;
  DeadlineMap deadlines_;
  std::optional<std::mt19937_64> ties_;
  bool late_ = false;
  bool ended_ = false;
};

}  // namespace platform
