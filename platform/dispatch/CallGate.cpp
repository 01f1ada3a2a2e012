#include "platform/dispatch/CallGate.h"

#include <algorithm>
#include <utility>

namespace platform {

CallGate::CallGate(std::function<void()> onClosed) : onClosed_(std::move(onClosed)) {}

void CallGate::close() {
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  if (!calls_.empty()) return waitForOthers(lock);
  begin();
  lock.unlock();
  leave();
}

void CallGate::waitForOthers() {
  std::unique_lock lock(mutex_);
  waitForOthers(lock);
}

bool CallGate::enter() {
  const std::lock_guard lock(mutex_);
  if (isClosed_) return false;
  begin();
  return true;
}

void CallGate::begin() {
  calls_.push_back({std::this_thread::get_id(), ++lastNumber_, false});
}

void CallGate::leave() {
  std::unique_lock lock(mutex_);
  if (isClosed_ && calls_.size() == 1 && onClosed_) {
    // Still as a call, so that other closers wait for it and it may itself close.
    const auto onClosed = std::exchange(onClosed_, nullptr);
    lock.unlock();
    onClosed();
    lock.lock();
  }
  // The calls of one thread lie inside each other: the newest ends first.
  const auto own = std::find_if(calls_.rbegin(), calls_.rend(),
                                [](const Call& call) { return call.thread == std::this_thread::get_id(); });
  calls_.erase(std::next(own).base());
  changed_.notify_all();
}

/// Two calls that wait inside do not wait for each other: neither could end.
void CallGate::waitForOthers(std::unique_lock<std::mutex>& lock) {
  const auto self = std::this_thread::get_id();
  const bool isInside = markOwn(true);
  changed_.wait(lock, [&, newest = lastNumber_] {
    return std::ranges::none_of(calls_, [&](const Call& call) {
      return call.thread != self && call.number <= newest && !(isInside && call.isWaiting);
    });
  });
  markOwn(false);
}

/// True when there are such calls.
bool CallGate::markOwn(bool isWaiting) {
  bool isInside = false;
  for (Call& call : calls_) {
    if (call.thread != std::this_thread::get_id()) continue;
    call.isWaiting = isWaiting;
    isInside = true;
  }
  if (isInside && isWaiting) changed_.notify_all();
  return isInside;
}

}  // namespace platform
