#include "platform/dispatch/CallGate.h"

#include <memory>
#include <utility>

namespace platform {

CallGate::CallGate(std::function<void()> onClosed) : onClosed_(std::move(onClosed)) {}

void CallGate::close() {
  const auto last = std::make_unique<Call>(*this);
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  if (newest_ != nullptr) return waitForOthers(lock);
  begin(*last);
}

void CallGate::waitForOthers() {
  std::unique_lock lock(mutex_);
  waitForOthers(lock);
}

bool CallGate::enter(Call& call) {
  const std::lock_guard lock(mutex_);
  if (isClosed_) return false;
  begin(call);
  return true;
}

void CallGate::begin(Call& call) {
  call.number = ++lastNumber_;
  call.thread = std::this_thread::get_id();
  call.older = std::exchange(newest_, &call);
}

void CallGate::leave(Call& call) {
  std::unique_lock lock(mutex_);
  if (isClosed_ && newest_ == &call && call.older == nullptr && onClosed_) {
    // Still as a call, so that other closers wait for it and it may itself close.
    const auto onClosed = std::exchange(onClosed_, nullptr);
    lock.unlock();
    onClosed();
    lock.lock();
  }
  Call** link = &newest_;
  while (*link != &call) link = &(*link)->older;
  *link = call.older;
  callsChanged();
}

void CallGate::callsChanged() {
  if (waiters_ > 0) changed_.notify_all();
}

/// Two calls that wait inside do not wait for each other: neither could end.
void CallGate::waitForOthers(std::unique_lock<Mutex>& lock) {
  const auto self = std::this_thread::get_id();
  const bool isInside = markOwn(true);
  ++waiters_;
  changed_.wait(lock, [&, newest = lastNumber_] {
    for (const Call* call = newest_; call != nullptr; call = call->older) {
      if (call->thread != self && call->number <= newest && !(isInside && call->isWaiting)) return false;
    }
    return true;
  });
  --waiters_;
  markOwn(false);
}

/// True when there are such calls.
bool CallGate::markOwn(bool isWaiting) {
  bool isInside = false;
  for (Call* call = newest_; call != nullptr; call = call->older) {
    if (call->thread != std::this_thread::get_id()) continue;
    call->isWaiting = isWaiting;
    isInside = true;
  }
  if (isInside && isWaiting) callsChanged();
  return isInside;
}

}  // namespace platform
