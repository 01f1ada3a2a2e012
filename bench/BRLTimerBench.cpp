#include <atomic>
#include <memory>
#include <thread>

#include <benchmark/benchmark.h>

#include "BrenloftSDK/BRLTimer.h"
#include "bench/SmallRun.h"
#include "platform/Platform.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace {

using brenloft::bench::inSmallRun;
using platform::dispatch_time_t;
using platform::RealTimeDispatch;
using platform::VirtualDispatch;

// Timers take the service that the platform has when they are made, and a process has one platform: its
// service is whichever the benchmark is about.
class ChosenDispatch final : public platform::DispatchService {
 public:
  void choose(std::shared_ptr<platform::DispatchService> service) { service_ = std::move(service); }

  dispatch_time_t now() const override { return service_->now(); }
  platform::Date date() const override { return service_->date(); }
  const platform::dispatch_queue_t& mainQueue() const override { return service_->mainQueue(); }
  platform::dispatch_queue_t createQueue(std::string_view label) override {
    return service_->createQueue(label);
  }
  platform::dispatch_source_t createTimer(const platform::dispatch_queue_t& queue) override {
    return service_->createTimer(queue);
  }
  void after(dispatch_time_t delay, const platform::dispatch_queue_t& queue,
             platform::dispatch_block_t block) override {
    service_->after(delay, queue, std::move(block));
  }

 private:
  std::shared_ptr<platform::DispatchService> service_;
};

void install(std::shared_ptr<platform::DispatchService> dispatch) {
  static const auto chosen = [] {
    platform::Platform installed;
    auto service = std::make_shared<ChosenDispatch>();
    installed.dispatch = service;
    platform::Platform::install(std::move(installed));
    return service;
  }();
  chosen->choose(std::move(dispatch));
}

// An armed timer on another thread's queue, pushed back from this one.
void rescheduleOnRealTime(benchmark::State& state) {
  const auto dispatch = RealTimeDispatch::make();
  install(dispatch);
  const auto queue = dispatch->createQueue("timers");
  const auto timer = BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(
      static_cast<double>(state.range(0)), queue, [](BRLTimer&) {});
  for ([[maybe_unused]] auto _ : state) timer->reschedule();
  state.SetItemsProcessed(state.iterations());
  timer->cancel();
}
BENCHMARK(rescheduleOnRealTime)->Apply(inSmallRun<100'000>)->ArgName("delay")->Arg(5)->Arg(25);

void rescheduleOnVirtualTime(benchmark::State& state) {
  const auto dispatch = VirtualDispatch::make();
  install(dispatch);
  const auto timer =
      BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(5.0, dispatch->mainQueue(), [](BRLTimer&) {});
  for ([[maybe_unused]] auto _ : state) timer->reschedule();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(rescheduleOnVirtualTime)->Apply(inSmallRun<100'000>);

// Blocks for now, posted in bursts as from a loop that reads ahead.
void postOnVirtualTime(benchmark::State& state) {
  constexpr int kBurst = 1000;
  const auto dispatch = VirtualDispatch::make();
  const auto queue = dispatch->createQueue("blocks");
  int64_t ran = 0;
  while (state.KeepRunningBatch(kBurst)) {
    for (int i = 0; i < kBurst; ++i) queue->async([&ran] { ++ran; });
    dispatch->runDue();
  }
  state.SetItemsProcessed(ran);
}
BENCHMARK(postOnVirtualTime)->Apply(inSmallRun<100'000>);

// One block after the other, each a little later, beside many armed timers: a replay.
void replayOnVirtualTime(benchmark::State& state) {
  const auto dispatch = VirtualDispatch::make();
  install(dispatch);
  const auto queue = dispatch->createQueue("blocks");
  for (int64_t i = 0; i < state.range(0); ++i) {
    BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(1e6, queue, [](BRLTimer&) {});
  }
  int64_t ran = 0;
  for ([[maybe_unused]] auto _ : state) {
    dispatch->after(std::chrono::microseconds(100), queue, [&ran] { ++ran; });
    dispatch->advance(std::chrono::microseconds(100));
  }
  state.SetItemsProcessed(ran);
}
BENCHMARK(replayOnVirtualTime)->Apply(inSmallRun<50'000>)->ArgName("timers")->Arg(1)->Arg(10'000);

// Blocks from this thread to a queue with a thread of its own, counted once all have run.
void postOnRealTime(benchmark::State& state) {
  constexpr int kBurst = 10'000;
  const auto dispatch = RealTimeDispatch::make();
  const auto queue = dispatch->createQueue("blocks");
  std::atomic<int64_t> ran = 0;
  int64_t posted = 0;
  while (state.KeepRunningBatch(kBurst)) {
    for (int i = 0; i < kBurst; ++i) queue->async([&ran] { ran.fetch_add(1, std::memory_order_relaxed); });
    posted += kBurst;
    while (ran.load(std::memory_order_relaxed) < posted) std::this_thread::yield();
  }
  state.SetItemsProcessed(posted);
}
BENCHMARK(postOnRealTime)->UseRealTime();

}  // namespace
