#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/CallGate.h"
#include "platform/dispatch/Dispatch.h"

namespace platform {

/// What sources have in common: one serial queue, on which everything of theirs happens in steps, and the
/// gate that keeps the promise of `AdvertisingReportSource::close`. A step runs unless the source is closed
/// or gone, and `close` waits for the one that runs; so what only steps use needs no lock, and steps may name
/// `this`. A step is anything callable, or a member function of the source.
///
/// Sources that stand on each other share a queue: what the lower one announces, the upper one hands on
/// within the same step.
///
/// Threads: operations from any; what is protected from steps only, unless its comment says otherwise.
template <class Interface = AdvertisingReportSource>
class QueuedSource : public Interface, public std::enable_shared_from_this<QueuedSource<Interface>> {
 public:
  using ReportHandler = AdvertisingReportSource::ReportHandler;
  using StateHandler = AdvertisingReportSource::StateHandler;

  QueuedSource(const QueuedSource&) = delete;
  QueuedSource& operator=(const QueuedSource&) = delete;

  void open(ReportHandler onReport, StateHandler onState) final {
    post([this, onReport = std::move(onReport), onState = std::move(onState)] {
      onReport_ = onReport;
      onState_ = onState;
      didOpen();
    });
  }
  void close() final { gate_.close(); }

 protected:
  /// Runs on `shared`, or on a queue of its own that is named `label`.
  QueuedSource(std::shared_ptr<DispatchService> dispatch, std::string_view label,
               dispatch_queue_t shared = nullptr)
      : dispatch_(std::move(dispatch)), queue_(shared ? std::move(shared) : dispatch_->createQueue(label)) {}

  virtual void didOpen() = 0;
  /// Once, when the source is closed and no step runs: on the closing thread, or at the end of the step that
  /// closes. A source that has one calls `close` in its destructor.
  virtual void didClose() {}

  /// What follows is dropped for the steps of the connection before: `later`, `hop` and `within`.
  void beginConnection() { ++connection_; }
  uint64_t connection() const { return connection_; }
  // From any thread.
  DispatchService& dispatch() const { return *dispatch_; }
  const dispatch_queue_t& queue() const { return queue_; }
  bool isClosed() const { return gate_.isClosed(); }

  /// From any thread.
  template <class Step, class... Arguments>
  void post(Step step, Arguments... arguments) {
    queue_->async([weak = this->weak_from_this(), step, ... arguments = std::move(arguments)] {
      if (const auto self = weak.lock()) self->gate_.call([&] { self->take(step, arguments...); });
    });
  }
  template <class Step, class... Arguments>
  void later(dispatch_time_t pause, Step step, Arguments... arguments) {
    dispatch_->after(pause, queue_,
                     [run = within(step), ... arguments = std::move(arguments)] { run(arguments...); });
  }
  /// For those who call on this queue: a handler that is a step.
  template <class Step>
  auto within(Step step) {
    return [weak = this->weak_from_this(), connection = connection_, step](const auto&... arguments) {
      const auto self = weak.lock();
      if (!self) return;
      self->gate_.call([&] {
        if (self->connection_ == connection) self->take(step, arguments...);
      });
    };
  }
  /// For those who call from elsewhere and must not be held up: a handler that posts a step. They never hold
  /// the source.
  template <class Step>
  auto hop(Step step) {
    return [queue = queue_, run = within(step)](auto... arguments) {
      queue->async([run, ... arguments = std::move(arguments)] { run(arguments...); });
    };
  }
  /// A handler that runs on this queue and may wait: `close` does not wait for it. Whatever it shares with
  /// steps or hands on has to be `guarded`.
  template <class Step, class... Arguments>
  dispatch_block_t unguarded(Step step, Arguments... arguments) {
    return [weak = this->weak_from_this(), step, ... arguments = std::move(arguments)] {
      const auto self = weak.lock();
      if (self && !self->isClosed()) self->take(step, arguments...);
    };
  }
  template <class Work>
  void guarded(const Work& work) {
    gate_.call(work);
  }

  /// A timer whose handler is a step; it ends with the source.
  template <class Step>
  dispatch_source_t makeTimer(Step step) {
    auto timer = dispatch_->createTimer(queue_);
    useTimer(timer, step);
    return timer;
  }
  /// The same for a timer that was made before the source could be held.
  template <class Step>
  void useTimer(const dispatch_source_t& timer, Step step) {
    timer->setEventHandler([weak = this->weak_from_this(), step] {
      if (const auto self = weak.lock()) self->gate_.call([&] { self->take(step); });
    });
    timer->resume();
    timers_.push_back(timer);
  }

  /// Nothing more once a handler has closed the source.
  // NOLINTNEXTLINE(*-override,*-explicit-virtual-functions): of one interface only
  void report(const AdvertisingReport& report) {
    if (onReport_ && !isClosed()) onReport_(report);
  }
  void announce(const RadioState& state) {
    if (onState_ && !isClosed()) onState_(state);
  }

 private:
  template <class Step, class... Arguments>
  void take(const Step& step, const Arguments&... arguments) {
    step(arguments...);
  }
  template <class Self, class... Parameters, class... Arguments>
  void take(void (Self::*step)(Parameters...), const Arguments&... arguments) {
    (static_cast<Self*>(this)->*step)(arguments...);
  }

  void finish() {
    for (const auto& timer : timers_) timer->cancel();
    didClose();
    onReport_ = nullptr;
    onState_ = nullptr;
  }

  const std::shared_ptr<DispatchService> dispatch_;
  const dispatch_queue_t queue_;
  CallGate gate_{[this] { finish(); }};
  ReportHandler onReport_;
  StateHandler onState_;
  std::vector<dispatch_source_t> timers_;
  uint64_t connection_ = 0;  ///< tells what an earlier connection still says from what the present one says
};

}  // namespace platform
