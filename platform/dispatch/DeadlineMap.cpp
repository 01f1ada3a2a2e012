#include "platform/dispatch/DeadlineMap.h"

#include <utility>

#include "platform/dispatch/TimerSource.h"

namespace platform {
namespace {

bool isParked(const Deadline& deadline) {
  return deadline.due == DISPATCH_TIME_FOREVER;
}

}  // namespace

void DeadlineMap::add(Deadline deadline, PostedBlock block) {
  entries_.emplace(deadline, std::move(block));
  if (isParked(deadline)) ++parked_;
}

void DeadlineMap::wakeAt(Deadline deadline, const dispatch_queue& queue,
                         const std::shared_ptr<TimerSource>& source) {
  auto& wake = source->wake();
  if (wake) {
    move(*wake, deadline);
    return;
  }
  wake = entries_.emplace(deadline, TimerWake{&queue, source});
  if (isParked(deadline)) ++parked_;
}

void DeadlineMap::move(Entries::iterator& entry, Deadline deadline) {
  if (isParked(entry->first)) --parked_;
  if (isParked(deadline)) ++parked_;
  auto node = entries_.extract(entry);
  node.key() = deadline;
  entry = entries_.insert(std::move(node));
}

std::shared_ptr<TimerSource> DeadlineMap::forget(TimerSource& source) {
  if (!source.wake()) return nullptr;
  return std::get<TimerWake>(take(*source.wake())).source;
}

PendingWork DeadlineMap::take(Entries::iterator entry) {
  if (isParked(entry->first)) --parked_;
  PendingWork work = std::move(entry->second);
  entries_.erase(entry);
  if (const auto* wake = std::get_if<TimerWake>(&work)) wake->source->wake().reset();
  return work;
}

std::vector<PendingWork> DeadlineMap::takeAll() {
  std::vector<PendingWork> all;
  all.reserve(entries_.size());
  while (!entries_.empty()) all.push_back(take(entries_.begin()));
  return all;
}

std::vector<std::shared_ptr<TimerSource>> DeadlineMap::sources() const {
  std::vector<std::shared_ptr<TimerSource>> sources;
  for (const auto& [_, work] : entries_) {
    if (const auto* wake = std::get_if<TimerWake>(&work)) sources.push_back(wake->source);
  }
  return sources;
}

dispatch_time_t DeadlineMap::nextDue() const {
  return entries_.empty() ? DISPATCH_TIME_FOREVER : entries_.begin()->first.due;
}

TimerSource* DeadlineMap::firstSource() const {
  if (nextDue() == DISPATCH_TIME_FOREVER) return nullptr;
  const auto* wake = std::get_if<TimerWake>(&entries_.begin()->second);
  return wake != nullptr ? wake->source.get() : nullptr;
}

}  // namespace platform
