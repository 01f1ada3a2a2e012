#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

// One unit is long enough on real time that two deadlines a unit apart come in order on a busy machine.
class RealTime {
 public:
  static constexpr auto kUnit = 20ms;

  DispatchService& service() { return *dispatch_; }
  /// Lets at least this much time pass, the main queue running.
  void pass(dispatch_time_t duration) {
    const dispatch_time_t end = dispatch_->now() + duration;
    bool reached = false;
    dispatch_->after(duration, dispatch_->mainQueue(), [&] {
      reached = true;
      dispatch_->stop();
    });
    while (!reached) dispatch_->run();
    ASSERT_GE(dispatch_->now(), end);
  }
  void drop() { dispatch_.reset(); }

 private:
  std::shared_ptr<RealTimeDispatch> dispatch_ = RealTimeDispatch::make();
};

class VirtualTime {
 public:
  static constexpr auto kUnit = 1s;

  DispatchService& service() { return *dispatch_; }
  void pass(dispatch_time_t duration) { dispatch_->advance(duration); }
  void drop() { dispatch_.reset(); }

 protected:
  std::shared_ptr<VirtualDispatch> dispatch_ = VirtualDispatch::make();
};

class VirtualTimeFiringLate : public VirtualTime {
 public:
  VirtualTimeFiringLate() { dispatch_->fireLate(true); }
};

class VirtualTimeShufflingTies : public VirtualTime {
 public:
  VirtualTimeShufflingTies() { dispatch_->shuffleTies(7); }
};

template <typename Time>
class DispatchConformance : public testing::Test {
 protected:
  static constexpr dispatch_time_t kUnit = Time::kUnit;

  // The queues' threads end before what their blocks use.
  ~DispatchConformance() override { time_.drop(); }

  DispatchService& service() { return time_.service(); }
  void pass(dispatch_time_t duration) { time_.pass(duration); }

  Time time_;
  dispatch_queue_t queue_ = service().createQueue("tests");
  std::atomic<int> fired_ = 0;
  std::atomic<dispatch_time_t> firedAt_{};

  dispatch_source_t makeTimer() {
    dispatch_source_t timer = service().createTimer(queue_);
    timer->setEventHandler([this] {
      EXPECT_TRUE(queue_->isCurrent());
      firedAt_ = service().now();
      ++fired_;
    });
    return timer;
  }
  dispatch_time_t set(dispatch_source_timer& timer, dispatch_time_t delay, dispatch_time_t leeway = 0s) {
    const dispatch_time_t start = service().now() + delay;
    timer.setTimer(start, DISPATCH_TIME_FOREVER, leeway);
    return start;
  }
  dispatch_source_t startTimer(dispatch_time_t delay, dispatch_time_t leeway = 0s) {
    dispatch_source_t timer = makeTimer();
    set(*timer, delay, leeway);
    timer->resume();
    return timer;
  }
  /// Until what was armed for a shorter time has fired on every queue.
  void passUntilFired(int times = 1) {
    while (fired_ < times) pass(kUnit);
  }
};

using Implementations =
    testing::Types<RealTime, VirtualTime, VirtualTimeFiringLate, VirtualTimeShufflingTies>;
struct Names {
  template <typename T>
  static std::string GetName(int i) {
    return std::vector<std::string>{"RealTime", "VirtualTime", "FiringLate", "ShufflingTies"}.at(i);
  }
};
TYPED_TEST_SUITE(DispatchConformance, Implementations, Names);

TYPED_TEST(DispatchConformance, RunsBlocksOfAQueueInOrderOneAtATimeFromManyThreads) {
  constexpr int kEach = 500;
  std::vector<std::pair<int, int>> seen;
  std::atomic<bool> inside = false;
  std::atomic<bool> overlapped = false;
  std::vector<std::thread> submitters;
  for (int thread = 0; thread < 3; ++thread) {
    submitters.emplace_back([&, thread] {
      for (int i = 0; i < kEach; ++i) {
        this->queue_->async([&, thread, i] {
          if (inside.exchange(true)) overlapped = true;
          seen.emplace_back(thread, i);
          inside = false;
          ++this->fired_;
        });
      }
    });
  }
  for (auto& submitter : submitters) submitter.join();
  this->passUntilFired(3 * kEach);

  EXPECT_FALSE(overlapped);
  std::vector<int> next(3);
  for (const auto& [thread, i] : seen) EXPECT_EQ(i, next.at(thread)++) << "of thread " << thread;
}

TYPED_TEST(DispatchConformance, KnowsInsideABlockWhichQueueIsCurrentAndRunsWhatItSubmitsLater) {
  const dispatch_queue_t main = this->service().mainQueue();
  std::string order;
  this->queue_->async([&] {
    EXPECT_TRUE(this->queue_->isCurrent());
    EXPECT_FALSE(main->isCurrent());
    this->queue_->async([&] {
      order += "inner";
      main->async([&] {
        EXPECT_TRUE(main->isCurrent());
        EXPECT_FALSE(this->queue_->isCurrent());
        ++this->fired_;
      });
    });
    order += "outer ";
  });
  EXPECT_FALSE(this->queue_->isCurrent());
  this->passUntilFired();
  EXPECT_EQ(order, "outer inner");
  EXPECT_EQ(this->queue_->label(), "tests");
}

TYPED_TEST(DispatchConformance, RunsDelayedBlocksInOrderOfTheirDeadlinesAndNotBefore) {
  std::vector<int> order;
  const dispatch_time_t begin = this->service().now();
  for (const int units : {3, 1, 2, 0, -5}) {
    this->service().after(units * this->kUnit, this->queue_, [&, units] {
      EXPECT_GE(this->service().now(), begin + units * this->kUnit);
      order.push_back(units);
      ++this->fired_;
    });
  }
  this->passUntilFired(5);
  EXPECT_EQ((std::set<int>{order[0], order[1]}), (std::set<int>{0, -5}));
  EXPECT_EQ((std::vector<int>{order[2], order[3], order[4]}), (std::vector<int>{1, 2, 3}));
}

TYPED_TEST(DispatchConformance, KeepsAQueueAliveForWhatItHasPending) {
  for (const dispatch_time_t delay : {0 * this->kUnit, this->kUnit})
    this->service().after(delay, this->service().createQueue("dropped"), [&] { ++this->fired_; });
  this->service().createQueue("dropped")->async([&] { ++this->fired_; });
  this->passUntilFired(3);
}

TYPED_TEST(DispatchConformance, RefusesAQueueOfAnotherService) {
  const auto other = VirtualDispatch::make();
  const auto another = RealTimeDispatch::make();
  const dispatch_queue_t foreign =
      dynamic_cast<VirtualDispatch*>(&this->service()) != nullptr ? another->mainQueue() : other->mainQueue();
  EXPECT_THROW(this->service().createTimer(foreign), std::invalid_argument);
  EXPECT_THROW(this->service().after(0s, foreign, [] {}), std::invalid_argument);
}

TYPED_TEST(DispatchConformance, FiresOnceOnItsQueueAndNeverEarly) {
  struct {
    dispatch_time_t delay, leeway;
  } const cases[] = {{this->kUnit, 0s},  {this->kUnit, this->kUnit},       {0s, 0s},
                     {-this->kUnit, 0s}, {dispatch_time_t::min() / 2, 0s}, {this->kUnit / 3, 1s}};
  for (const auto& [delay, leeway] : cases) {
    this->fired_ = 0;
    const dispatch_time_t earliest = this->service().now() + delay;
    const auto timer = this->startTimer(delay, leeway);
    this->passUntilFired();
    EXPECT_GE(timer->start(), earliest);
    EXPECT_GE(this->firedAt_.load(), timer->start());
    EXPECT_EQ(timer->leeway(), leeway);
    this->pass(2 * this->kUnit);
    EXPECT_EQ(this->fired_, 1);
  }
}

TYPED_TEST(DispatchConformance, PostponesFiringByPushingBack) {
  const auto timer = this->startTimer(5 * this->kUnit);
  dispatch_time_t start{};
  for (int i = 0; i < 5; ++i) {
    start = this->set(*timer, 5 * this->kUnit);
    this->pass(2 * this->kUnit);
  }
  this->passUntilFired();
  EXPECT_GE(this->firedAt_.load(), start);
  EXPECT_EQ(this->fired_, 1);
}

TYPED_TEST(DispatchConformance, ComesForwardToAnEarlierDeadline) {
  const auto timer = this->startTimer(1h);
  this->set(*timer, 2h);
  const dispatch_time_t start = this->set(*timer, this->kUnit);
  this->passUntilFired();
  EXPECT_GE(this->firedAt_.load(), start);
  EXPECT_LT(this->firedAt_.load(), start + 30min);
}

TYPED_TEST(DispatchConformance, FiresForADeadlineSetInItsOwnHandler) {
  const auto timer = this->service().createTimer(this->queue_);
  timer->setEventHandler([&, weak = std::weak_ptr(timer)] {
    if (++this->fired_ < 3) this->set(*weak.lock(), this->kUnit / 2);
  });
  this->set(*timer, 0s);
  timer->resume();
  this->passUntilFired(3);
}

TYPED_TEST(DispatchConformance, HoldsAFiringBackWhileSuspended) {
  const auto timer = this->makeTimer();  // that begins suspended
  this->set(*timer, 2 * this->kUnit);
  timer->suspend();
  this->pass(4 * this->kUnit);
  timer->resume();
  this->pass(this->kUnit);
  EXPECT_EQ(this->fired_, 0) << "one of two suspensions was taken back";
  timer->resume();
  this->passUntilFired();

  // Resuming more often than suspending leaves no credit behind.
  timer->resume();
  timer->suspend();
  this->set(*timer, this->kUnit);
  this->pass(3 * this->kUnit);
  EXPECT_EQ(this->fired_, 1);
  timer->resume();
  this->passUntilFired(2);
}

TYPED_TEST(DispatchConformance, NeverFiresOnceCancelled) {
  const auto armed = this->startTimer(this->kUnit);
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> seen = held;
  armed->setEventHandler([this, held = std::move(held)] { ++this->fired_; });
  EXPECT_FALSE(seen.expired());
  armed->cancel();
  EXPECT_TRUE(seen.expired()) << "the timer is held, its handler is not";
  const auto suspended = this->startTimer(this->kUnit);
  suspended->suspend();
  suspended->cancel();
  suspended->resume();
  for (const auto& timer : {armed, suspended}) {
    EXPECT_TRUE(timer->testCancel());
    this->set(*timer, 0s);
    timer->setEventHandler([this] { ++this->fired_; });
    timer->resume();
  }
  this->pass(3 * this->kUnit);
  EXPECT_EQ(this->fired_, 0);
}

TYPED_TEST(DispatchConformance, SuppressesAFiringThatIsDueButHasNotBegun) {
  std::atomic<bool> late = false;
  // Begun where it would fire, so that it cannot do so before.
  this->queue_->async([&] {
    const auto timer = this->startTimer(this->kUnit);
    const dispatch_time_t due = timer->start();
    if (auto* clock = dynamic_cast<VirtualDispatch*>(&this->service())) clock->skip(2 * this->kUnit);
    while (this->service().now() <= due) std::this_thread::yield();
    timer->cancel();
    late = true;
  });
  while (!late) this->pass(this->kUnit);
  this->pass(this->kUnit);
  EXPECT_EQ(this->fired_, 0);
}

TYPED_TEST(DispatchConformance, KeepsATimerAliveOnlyWhileItHasADeadline) {
  std::weak_ptr<dispatch_source_timer> armed = this->startTimer(this->kUnit);
  EXPECT_FALSE(armed.expired());
  this->passUntilFired();
  this->pass(this->kUnit);
  EXPECT_TRUE(armed.expired());

  std::weak_ptr<dispatch_source_timer> suspended = this->startTimer(1h);
  suspended.lock()->suspend();
  EXPECT_FALSE(suspended.expired());
  suspended.lock()->cancel();
  EXPECT_TRUE(suspended.expired());
  std::weak_ptr<dispatch_source_timer> withoutDeadline = this->startTimer(1h);
  withoutDeadline.lock()->setTimer(DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, 0s);
  EXPECT_TRUE(withoutDeadline.expired());
}

TYPED_TEST(DispatchConformance, DropsEverythingAtItsEnd) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> seen = held;
  std::weak_ptr<dispatch_source_timer> timer = this->startTimer(1h);
  timer.lock()->setEventHandler([held, self = timer.lock()] {});
  timer.lock()->suspend();
  this->service().after(1h, this->queue_, [held] {});
  this->service().mainQueue()->async([held] {});
  held.reset();
  const dispatch_queue_t main = this->service().mainQueue();
  this->time_.drop();
  EXPECT_TRUE(seen.expired());
  EXPECT_TRUE(timer.expired());
  this->queue_->async([] { FAIL(); });
  main->async([] { FAIL(); });
}

TYPED_TEST(DispatchConformance, NeverLosesADeadlineSetFromThreeThreadsWhileItFires) {
  const auto timer = this->service().createTimer(this->queue_);
  std::atomic<bool> early = false;
  std::atomic<bool> quiet = false;
  timer->setEventHandler([&] {
    // While others set deadlines, the one that is due now may have been replaced; afterwards it is the last.
    if (quiet && this->service().now() < timer->start()) early = true;
    ++this->fired_;
  });
  this->set(*timer, 0s);
  timer->resume();

  std::atomic<int> working = 3;
  std::vector<std::thread> setters;
  for (int seed = 0; seed < 3; ++seed) {
    setters.emplace_back([&, seed] {
      std::mt19937 random(seed);
      std::uniform_int_distribution<int> microseconds(-200, 2000);
      for (int i = 0; i < 3000; ++i) {
        this->set(*timer, std::chrono::microseconds(microseconds(random)));
        if (i % 64 == 0) timer->suspend();
        if (i % 64 == 1) timer->resume();
      }
      --working;
    });
  }
  while (working > 0) this->pass(1ms);
  for (auto& setter : setters) setter.join();
  this->pass(10ms);

  for (int round = 0; round < 20; ++round) {
    quiet = true;
    const auto hasFired = [this, before = this->fired_.load()] { return this->fired_ != before; };
    this->set(*timer, 1ms);
    while (!hasFired()) this->pass(1ms);
  }
  EXPECT_FALSE(early);
  timer->cancel();
  this->pass(1ms);
}

}  // namespace
}  // namespace platform
