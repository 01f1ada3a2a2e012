#include "platform/dispatch/RealTimeQueue.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include <asio/post.hpp>
#include <pthread.h>

namespace platform {
namespace {

// The queue whose block this thread is in.
thread_local const dispatch_queue* currentQueue = nullptr;

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

RealTimeQueue::RealTimeQueue(std::string_view label) : label_(label), alarm_(loop_->context) {}

RealTimeQueue::~RealTimeQueue() {
  endThread();
}

void RealTimeQueue::startThread() {
  running_ = true;
  const AllSignalsBlocked blocked;
  // The thread shares the loop, because the last reference to the queue may be dropped on it.
  thread_ = std::thread([loop = loop_, label = label_] {
    nameThread(label);
    loop->context.run();
  });
}

void RealTimeQueue::endThread() {
  if (loop_) loop_->work.reset();
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id())
    thread_.detach();
  else
    thread_.join();
}

void RealTimeQueue::end() {
  std::deque<PendingWork> ready;
  std::vector<PendingWork> waiting;
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
    ready.swap(ready_);
    waiting = deadlines_.takeAll();
  }
  for (const PendingWork& work : waiting) {
    if (const auto* wake = std::get_if<TimerWake>(&work)) wake->source->cancel();
  }
  stopping_ = true;
  loop_->context.stop();
  endThread();
  const std::scoped_lock lock(mutex_);
  alarm_.reset();
  loop_.reset();  // its turns that did not run hold the queue
}

bool RealTimeQueue::isCurrent() const {
  return currentQueue == this;
}

void RealTimeQueue::async(dispatch_block_t block) {
  const std::scoped_lock lock(mutex_);
  if (ended_) return;
  ready_.emplace_back(PostedBlock{this, std::move(block)});
  changed();
}

void RealTimeQueue::asyncAt(dispatch_time_t due, dispatch_block_t block) {
  const std::scoped_lock lock(mutex_);
  if (ended_) return;
  deadlines_.add({due, order_++}, {this, std::move(block)});
  changed();
}

dispatch_time_t RealTimeQueue::pick(dispatch_time_t want, dispatch_time_t leeway) const {
  const dispatch_time_t latest = dispatch_time(want, leeway);
  if (latest == DISPATCH_TIME_FOREVER) return want;
  return std::max(want, latest - latest % kCommonInstants);
}

void RealTimeQueue::wakeAt(const std::shared_ptr<TimerSource>& source, dispatch_time_t due, uint64_t) {
  const std::scoped_lock lock(mutex_);
  if (ended_) return;
  deadlines_.wakeAt({due, order_++}, *this, source);
  changed();
}

std::shared_ptr<TimerSource> RealTimeQueue::forget(TimerSource& source) {
  const std::scoped_lock lock(mutex_);
  std::shared_ptr<TimerSource> dropped = deadlines_.forget(source);
  // The alarm holds the queue, so it does not wait for what will not come.
  if (dropped && running_ && deadlines_.nextDue() > alarmAt_) requestTurn();
  if (dropped && readiness_) showReadiness();
  return dropped;
}

void RealTimeQueue::changed() {
  if (running_ && (!ready_.empty() || deadlines_.nextDue() < alarmAt_)) requestTurn();
  if (readiness_) showReadiness();
}

void RealTimeQueue::requestTurn() {
  if (std::exchange(turnRequested_, true)) return;
  asio::post(loop_->context, [self = shared_from_this()] { self->turn(); });
}

void RealTimeQueue::showReadiness() {
  readiness_->setSignal(!ready_.empty());
  readiness_->setDeadline(deadlines_.nextDue());
}

void RealTimeQueue::turn() {
  runDue(true);
  const std::scoped_lock lock(mutex_);
  turnRequested_ = false;
  if (ended_) return;
  if (!ready_.empty()) requestTurn();
  setAlarm();
}

void RealTimeQueue::setAlarm() {
  const dispatch_time_t due = deadlines_.nextDue();
  if (due == alarmAt_) return;
  alarmAt_ = due;
  if (due == DISPATCH_TIME_FOREVER) {
    alarm_->cancel();
    return;
  }
  alarm_->expires_at(std::chrono::steady_clock::time_point(due));
  alarm_->async_wait([self = shared_from_this()](const std::error_code& error) {
    if (error) return;  // another alarm took its place
    {
      const std::scoped_lock lock(self->mutex_);
      self->alarmAt_ = DISPATCH_TIME_FOREVER;
      // A turn that is on its way will do.
      if (std::exchange(self->turnRequested_, true)) return;
    }
    self->turn();
  });
}

// Runs what is due at the beginning, not what that submits, so that a foreign loop gets its turn.
size_t RealTimeQueue::runDue(bool untilStopped) {
  size_t handled = 0;
  for (size_t left = collectDue(); left > 0 && !(untilStopped && stopping_); --left) {
    if (!runFirst(handled)) break;
  }
  const std::scoped_lock lock(mutex_);
  if (readiness_) showReadiness();
  return handled;
}

size_t RealTimeQueue::collectDue() {
  const std::scoped_lock lock(mutex_);
  if (deadlines_.nextDue() != DISPATCH_TIME_FOREVER) {
    const dispatch_time_t instant = now();
    while (deadlines_.nextDue() <= instant) ready_.push_back(deadlines_.take(deadlines_.begin()));
  }
  return ready_.size();
}

bool RealTimeQueue::runFirst(size_t& handled) {
  std::unique_lock lock(mutex_);
  if (ready_.empty()) return false;
  PendingWork work = std::move(ready_.front());
  ready_.pop_front();
  lock.unlock();
  const dispatch_queue* outer = std::exchange(currentQueue, this);
  bool ran = true;
  if (auto* posted = std::get_if<PostedBlock>(&work))
    posted->block();
  else
    ran = std::get<TimerWake>(work).source->onWake();
  currentQueue = outer;
  if (ran) ++handled;
  return true;
}

void RealTimeQueue::run() {
  const std::shared_ptr<Loop> loop = loop_;
  std::unique_lock lock(mutex_);
  running_ = true;
  requestTurn();
  // Asked under the lock: a stop before the restart would be undone by it.
  while (!stopping_.exchange(false)) {
    loop->context.restart();
    lock.unlock();
    loop->context.run();
    lock.lock();
  }
  running_ = false;
}

size_t RealTimeQueue::poll() {
  return runDue(false);
}

void RealTimeQueue::stop() {
  const std::scoped_lock lock(mutex_);
  if (ended_) return;
  stopping_ = true;
  loop_->context.stop();
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
