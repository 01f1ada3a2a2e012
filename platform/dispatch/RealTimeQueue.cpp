#include "platform/dispatch/RealTimeQueue.h"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <utility>

#include <pthread.h>

#include "platform/dispatch/WakeUpsTogether.h"

namespace platform {
namespace {

// The queue whose block this thread is in.
thread_local RealTimeQueue* currentQueue = nullptr;

// Wake-ups that may be late fall on common instants, so that several need one.
constexpr dispatch_time_t kCommonInstants = std::chrono::milliseconds(250);

void nameThread(const std::string& label) {
  constexpr size_t kLongestName = 15;
  pthread_setname_np(pthread_self(), label.substr(0, kLongestName).c_str());
}

// Signals are for the application's threads.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

dispatch_queue_t RealTimeQueue::startThread(const std::shared_ptr<RealTimeQueue>& queue) {
  const AllSignalsBlocked blocked;
  queue->thread_ = std::thread([queue] {
    nameThread(queue->label_);
    queue->run();
  });
  return {queue.get(), [owned = queue](auto*) mutable { std::exchange(owned, nullptr)->release(); }};
}

RealTimeQueue::~RealTimeQueue() {
  endThread();
}

void RealTimeQueue::release() {
  const std::scoped_lock lock(mutex_);
  released_ = true;
  sleeper_.wake();
}

void RealTimeQueue::endThread() {
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id())
    thread_.detach();
  else
    thread_.join();
}

void RealTimeQueue::end() {
  std::deque<PendingWork> dropped;
  {
    const std::scoped_lock lock(mutex_);
    ended_ = stopping_ = true;
    dropped.swap(ready_);
    std::ranges::move(deadlines_.takeAll(), std::back_inserter(dropped));
    sleeper_.wake();
  }
  for (const PendingWork& work : dropped) {
    if (const auto* wake = std::get_if<TimerWake>(&work)) wake->source->cancel();
  }
  endThread();
}

RealTimeQueue* RealTimeQueue::current() {
  return currentQueue;
}

bool RealTimeQueue::isCurrent() const {
  return currentQueue == this;
}

void RealTimeQueue::async(dispatch_block_t block) {
  Lock lock(mutex_);
  if (ended_) return;
  ready_.emplace_back(PostedBlock{this, std::move(block)});
  submitted(lock);
}

void RealTimeQueue::asyncAt(dispatch_time_t due, dispatch_block_t block) {
  Lock lock(mutex_);
  if (ended_) return;
  deadlines_.add({due, submissions_++}, {this, std::move(block)});
  submitted(lock);
}

// Who is woken needs the lock at once, so it is let go of first; what was submitted may then be done and have
// let go of the queue.
void RealTimeQueue::submitted(Lock& lock) {
  if (readiness_) showReadiness();
  if (!sleepsTooLong()) return;
  const auto self = shared_from_this();
  if (WakeUpsTogether::hold(self)) return;
  asleepUntil_ = kAwake;
  lock.unlock();
  sleeper_.wake();
}

void RealTimeQueue::wakeUp() {
  Lock lock(mutex_);
  if (!sleepsTooLong()) return;
  asleepUntil_ = kAwake;
  lock.unlock();
  sleeper_.wake();
}

dispatch_time_t RealTimeQueue::pick(dispatch_time_t want, dispatch_time_t leeway) const {
  const dispatch_time_t latest = dispatch_time(want, leeway);
  if (latest == DISPATCH_TIME_FOREVER) return want;
  return std::max(want, latest - latest % kCommonInstants);
}

void RealTimeQueue::wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t order) {
  if (ended_) return;
  deadlines_.wakeAt({due, order}, *this, source);
  if (readiness_) showReadiness();
  if (!sleepsTooLong()) return;
  asleepUntil_ = kAwake;
  sleeper_.wake();
}

std::shared_ptr<TimerSource> RealTimeQueue::forget(TimerSource& source) {
  std::shared_ptr<TimerSource> dropped = deadlines_.forget(source);
  if (dropped && readiness_) showReadiness();
  return dropped;
}

// What is ready is due from the beginning of time.
dispatch_time_t RealTimeQueue::nextWork() const {
  return ready_.empty() ? deadlines_.nextDue() : dispatch_time_t::min();
}

void RealTimeQueue::showReadiness() {
  readiness_->setSignal(!ready_.empty());
  readiness_->setDeadline(deadlines_.nextDue());
}

void RealTimeQueue::run() {
  Lock lock(mutex_);
  while (!stopping_ && !(released_ && nextWork() == DISPATCH_TIME_FOREVER)) {
    size_t due = collectDue();
    if (due == 0) sleep(lock);
    for (; due > 0 && !stopping_; --due) runFirst(lock);
  }
  stopping_ = false;
  if (readiness_) showReadiness();
}

// Runs what is due at the beginning, not what that submits, so that a foreign loop gets its turn.
size_t RealTimeQueue::poll() {
  Lock lock(mutex_);
  size_t handled = 0;
  for (size_t due = collectDue(); due > 0; --due) {
    if (runFirst(lock)) ++handled;
  }
  if (readiness_) showReadiness();
  return handled;
}

void RealTimeQueue::sleep(Lock& lock) {
  asleepUntil_ = deadlines_.nextDue();
  sleeper_.sleep(lock, asleepUntil_);
  asleepUntil_ = kAwake;
}

// Puts what has become due behind what was posted, and counts both.
size_t RealTimeQueue::collectDue() {
  if (deadlines_.nextDue() != DISPATCH_TIME_FOREVER) {
    const dispatch_time_t instant = now();
    while (deadlines_.nextDue() <= instant) ready_.push_back(deadlines_.take(deadlines_.begin()));
  }
  return ready_.size();
}

// True when something ran, not when a wake-up only went to sleep again.
bool RealTimeQueue::runFirst(Lock& lock) noexcept {
  if (ready_.empty()) return false;
  bool ran = true;
  {
    PendingWork work = std::move(ready_.front());
    ready_.pop_front();
    lock.unlock();
    RealTimeQueue* const outer = std::exchange(currentQueue, this);
    if (auto* posted = std::get_if<PostedBlock>(&work))
      posted->block();
    else
      ran = std::get<TimerWake>(work).source->onWake();
    currentQueue = outer;
  }
  lock.lock();
  return ran;
}

void RealTimeQueue::stop() {
  const std::scoped_lock lock(mutex_);
  stopping_ = true;
  sleeper_.wake();
}

int RealTimeQueue::fileDescriptor() {
  const std::scoped_lock lock(mutex_);
  if (!readiness_) {
    readiness_.emplace();
    showReadiness();
  }
  return readiness_->fileDescriptor();
}

}  // namespace platform
