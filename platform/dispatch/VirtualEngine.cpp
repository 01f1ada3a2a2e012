#include "platform/dispatch/VirtualEngine.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace platform {
namespace {

// The queue whose block this thread is in.
thread_local const dispatch_queue* runningQueue = nullptr;

std::chrono::microseconds wholeMicroseconds(dispatch_time_t time) {
  return std::chrono::floor<std::chrono::microseconds>(time);
}

}  // namespace

VirtualEngine::VirtualEngine(Date start) : dateAtZero_(start.time_since_epoch().count()) {}

Date VirtualEngine::date() const {
  return Date(std::chrono::microseconds(dateAtZero_.load()) + wholeMicroseconds(now()));
}

void VirtualEngine::setDate(Date date) {
  dateAtZero_.store((date.time_since_epoch() - wholeMicroseconds(now())).count());
}

void VirtualEngine::skip(dispatch_time_t duration) {
  moveTo(dispatch_time(now(), duration));
}

void VirtualEngine::moveTo(dispatch_time_t instant) {
  const std::scoped_lock lock(mutex_);
  if (instant > now()) now_.store(instant.count(), std::memory_order_release);
}

void VirtualEngine::post(const dispatch_queue& queue, dispatch_block_t&& block) {
  const std::scoped_lock lock(mutex_);
  if (!ended_) add(soon_, now(), queue, std::move(block));
}

void VirtualEngine::postAt(dispatch_time_t due, const dispatch_queue& queue, dispatch_block_t&& block) {
  const std::scoped_lock lock(mutex_);
  if (!ended_) add(later_, std::max(due, now()), queue, std::move(block));
}

void VirtualEngine::add(Line& line, dispatch_time_t due, const dispatch_queue& queue,
                        dispatch_block_t&& block) {
  const Deadline deadline{due, submissions_++};
  const bool isInOrder = line.empty() || line.back().deadline < deadline;
  if (ties_ || !isInOrder || due == DISPATCH_TIME_FOREVER)
    deadlines_.add(deadline, {&queue, std::move(block)});
  else
    line.emplace_back(deadline, queue, std::move(block));
}

dispatch_time_t VirtualEngine::pick(dispatch_time_t want, dispatch_time_t leeway) const {
  return late_ ? dispatch_time(want, leeway) : want;
}

void VirtualEngine::wakeAt(dispatch_time_t due, uint64_t order, const dispatch_queue& queue,
                           const std::shared_ptr<TimerSource>& source) {
  if (!ended_) deadlines_.wakeAt({std::max(due, now()), order}, queue, source);
}

bool VirtualEngine::run(dispatch_time_t limit) {
  if (running_++ == 0) stopping_ = false;  // what nothing ran for is forgotten
  bool stopped = false;
  while (!stopped && runNext(limit)) {
    stopped = stopping_.load(std::memory_order_relaxed) && stopping_.exchange(false);
  }
  --running_;
  return !stopped;
}

void VirtualEngine::stop() {
  stopping_ = true;
}

void VirtualEngine::execute(const PostedBlock& posted) noexcept {
  const dispatch_queue* outer = std::exchange(runningQueue, posted.queue);
  posted.block();
  runningQueue = outer;
}

void VirtualEngine::execute(const TimerWake& wake) noexcept {
  const dispatch_queue* outer = std::exchange(runningQueue, wake.queue);
  wake.source->onWake();
  runningQueue = outer;
}

bool VirtualEngine::isCurrent(const dispatch_queue& queue) const {
  return runningQueue == &queue;
}

bool VirtualEngine::runNext(dispatch_time_t limit) {
  std::unique_lock lock(mutex_);
  Line* const line = nextLine();
  const dispatch_time_t due = line != nullptr ? line->front().deadline.due : deadlines_.nextDue();
  if (due == DISPATCH_TIME_FOREVER || due > limit) return false;
  if (due > now()) now_.store(due.count(), std::memory_order_release);
  if (line != nullptr) {
    const PostedBlock posted = std::move(line->front().block);
    line->pop_front();
    lock.unlock();
    execute(posted);
    return true;
  }
  const PendingWork work = ties_ ? takeShuffled(due) : deadlines_.take(deadlines_.begin());
  lock.unlock();
  std::visit([](const auto& kind) { execute(kind); }, work);
  return true;
}

/// The line whose first block is the next thing to happen.
VirtualEngine::Line* VirtualEngine::nextLine() {
  const bool isLater = !later_.empty() && (soon_.empty() || later_.front().deadline < soon_.front().deadline);
  Line& first = isLater ? later_ : soon_;
  const bool isNext = !first.empty() && (deadlines_.begin() == deadlines_.end() ||
                                         first.front().deadline < deadlines_.begin()->first);
  return isNext ? &first : nullptr;
}

PendingWork VirtualEngine::takeShuffled(dispatch_time_t due) {
  std::vector<DeadlineMap::Entries::iterator> firstOfEachQueue;
  for (auto entry = deadlines_.begin(); entry != deadlines_.end() && entry->first.due == due; ++entry) {
    const bool known = std::ranges::any_of(firstOfEachQueue, [&](const auto& other) {
      return queueOf(other->second) == queueOf(entry->second);
    });
    if (!known) firstOfEachQueue.push_back(entry);
  }
  std::uniform_int_distribution<size_t> choice(0, firstOfEachQueue.size() - 1);
  return deadlines_.take(firstOfEachQueue[choice(*ties_)]);
}

dispatch_time_t VirtualEngine::firstDue() {
  const Line* const line = nextLine();
  return line != nullptr ? line->front().deadline.due : deadlines_.nextDue();
}

size_t VirtualEngine::pendingCount() const {
  const std::scoped_lock lock(mutex_);
  return soon_.size() + later_.size() + deadlines_.pendingCount();
}

dispatch_time_t VirtualEngine::nextDue() {
  const std::scoped_lock lock(mutex_);
  // A wake-up whose deadline was pushed back will only go to sleep again.
  for (TimerSource* source = deadlines_.firstSource(); source != nullptr && source->rearm();)
    source = deadlines_.firstSource();
  return firstDue();
}

void VirtualEngine::shuffleTies(uint64_t seed) {
  const std::scoped_lock lock(mutex_);
  ties_.emplace(seed);
  for (Line* line : {&soon_, &later_}) {
    for (Waiting& waiting : *line) deadlines_.add(waiting.deadline, std::move(waiting.block));
    line->clear();
  }
}

void VirtualEngine::fireLate(bool late) {
  std::vector<std::shared_ptr<TimerSource>> sources;
  const std::scoped_lock lock(mutex_);
  late_ = late;
  sources = deadlines_.sources();
  for (const auto& source : sources) source->rearm();
}

void VirtualEngine::end() {
  Line soon;
  Line later;
  std::vector<PendingWork> waiting;
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
    soon.swap(soon_);
    later.swap(later_);
    waiting = deadlines_.takeAll();
  }
  for (const PendingWork& work : waiting) {
    if (const auto* wake = std::get_if<TimerWake>(&work)) wake->source->cancel();
  }
}

}  // namespace platform
