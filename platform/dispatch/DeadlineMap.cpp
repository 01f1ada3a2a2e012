#include "platform/dispatch/DeadlineMap.h"

#include <utility>

namespace platform {
namespace {

bool isParked(const Deadline& deadline) {
  return deadline.due == DISPATCH_TIME_FOREVER;
}

}  // namespace

void DeadlineMap::add(Deadline deadline, PostedBlock block) {
  // Most often the next thing to happen: a replay posts one advertisement after the other.
  if (spare_) {
    spare_.key() = deadline;
    spare_.mapped() = std::move(block);
    entries_.insert(entries_.begin(), std::move(spare_));
  } else {
    entries_.emplace_hint(entries_.begin(), deadline, std::move(block));
  }
  if (isParked(deadline)) ++parked_;
}

void DeadlineMap::wakeAt(Deadline deadline, const dispatch_queue& queue,
                         const std::shared_ptr<TimerSource>& source) {
  const auto known = wakes_.find(source.get());
  if (known != wakes_.end()) return move(known->second, deadline);
  wakes_.emplace(source.get(), entries_.emplace(deadline, TimerWake{&queue, source}));
  if (isParked(deadline)) ++parked_;
}

void DeadlineMap::move(Entries::iterator entry, Deadline deadline) {
  if (isParked(entry->first)) --parked_;
  if (isParked(deadline)) ++parked_;
  auto node = entries_.extract(entry);
  node.key() = deadline;
  const TimerSource* source = std::get<TimerWake>(node.mapped()).source.get();
  wakes_[source] = entries_.insert(std::move(node));
}

std::shared_ptr<TimerSource> DeadlineMap::forget(TimerSource& source) {
  const auto known = wakes_.find(&source);
  if (known == wakes_.end()) return nullptr;
  return std::get<TimerWake>(take(known->second)).source;
}

PendingWork DeadlineMap::take(Entries::iterator entry) {
  if (isParked(entry->first)) --parked_;
  spare_ = entries_.extract(entry);
  PendingWork work = std::move(spare_.mapped());
  if (const auto* wake = std::get_if<TimerWake>(&work)) wakes_.erase(wake->source.get());
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
  sources.reserve(wakes_.size());
  for (const auto& [_, entry] : wakes_) sources.push_back(std::get<TimerWake>(entry->second).source);
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
