#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "BrenloftSDK/BRLTimer.h"
#include "platform/Platform.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace {

using namespace std::chrono_literals;
using platform::DISPATCH_TIME_FOREVER;
using platform::dispatch_time_t;

class BRLTimerTest : public testing::Test {
 protected:
  BRLTimerTest() {
    platform::Platform platform;
    platform.dispatch = dispatch_;
    platform::Platform::install(std::move(platform));
  }

  const std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make();
  const platform::dispatch_queue_t queue_ = dispatch_->createQueue("timers");
  std::vector<dispatch_time_t> firings_;

  std::shared_ptr<BRLTimer> make(double delay) {
    return BRLTimer::Class::timerWithDelay_onQueue_block(delay, queue_, noted());
  }
  std::shared_ptr<BRLTimer> scheduled(double delay) {
    return BRLTimer::Class::scheduledTimerWithDelay_onQueue_block(delay, queue_, noted());
  }
  BRLTimer::Block noted() {
    return [this](BRLTimer&) {
      EXPECT_TRUE(queue_->isCurrent());
      firings_.push_back(dispatch_->now());
    };
  }
  using Firings = std::vector<dispatch_time_t>;
};

template <typename Timer>
concept MadeWithoutAKey = requires {
  Timer({}, 1.0, platform::dispatch_queue_t(), BRLTimer::Block());
};
static_assert(!MadeWithoutAKey<BRLTimer>);

TEST_F(BRLTimerTest, FiresOnceAfterItWasScheduledAndNeverAgainWhateverFollows) {
  const auto timer = make(5.0);
  timer->reschedule();
  dispatch_->advance(1h);
  timer->schedule();
  dispatch_->advance(5s - 1ns);
  EXPECT_EQ(firings_, Firings{});
  dispatch_->advance(1h);
  EXPECT_EQ(firings_, Firings{1h + 5s});
  EXPECT_TRUE(timer->source()->testCancel());
  timer->reschedule();
  timer->schedule();
  timer->resume();
  dispatch_->advance(1h);
  EXPECT_EQ(firings_, Firings{1h + 5s});
}

TEST_F(BRLTimerTest, ArmsItsSourceWithTruncatedDelayAndLeewayOfWholeSeconds) {
  constexpr auto kForever = DISPATCH_TIME_FOREVER;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  struct {
    double delay;
    dispatch_time_t start, leeway;
  } const cases[] = {
      {9.99, 9'990ms, 0s},
      {10.0, 10s, 1s},
      {19.999, 19'999ms, 1s},
      {0.0000000019, 1ns, 0s},
      {-0.0000000019, -1ns, 0s},
      {-25.0, -25s, 0s},
      {std::nan(""), 0s, 0s},
      {1e9, 1'000'000'000s, 100'000'000s},
      {1e10, kForever, 1'000'000'000s},
      {1e30, kForever, kForever},
      {kInfinity, kForever, kForever},
      {-kInfinity, dispatch_time_t::min(), 0s},
  };
  for (const auto& [delay, start, leeway] : cases) {
    const auto timer = make(delay);
    timer->reschedule();
    EXPECT_EQ(timer->source()->start(), start) << delay;
    EXPECT_EQ(timer->source()->leeway(), leeway) << delay;
    EXPECT_EQ(timer->delay() == delay, !std::isnan(delay));
  }
}

TEST_F(BRLTimerTest, CountsAgainFromEveryReschedule) {
  const auto timer = scheduled(5.0);
  for (int second = 0; second < 20; ++second) {
    dispatch_->advance(1s);
    timer->reschedule();
  }
  timer->setDelay(1.0);  // counts from the next reschedule
  dispatch_->advance(3s);
  EXPECT_EQ(firings_, Firings{});
  timer->reschedule();
  dispatch_->advance(1h);
  EXPECT_EQ(firings_, Firings{24s});
}

TEST_F(BRLTimerTest, NeverRunsTheHandlerOnceCancelled) {
  const auto timer = scheduled(5.0);
  dispatch_->advance(4s);
  timer->cancel();
  timer->reschedule();
  const auto inTheLastMoment = scheduled(5.0);
  dispatch_->after(5s, queue_, [&] { inTheLastMoment->cancel(); });
  queue_->async([&] { dispatch_->skip(6s); });
  make(5.0)->cancel();
  dispatch_->advance(1h);
  EXPECT_EQ(firings_.size(), 1U) << "only the one that was due before its cancel fires";
}

TEST_F(BRLTimerTest, HandsItselfToTheHandlerThatIsSetWhenItFires) {
  const auto timer = scheduled(5.0);
  const BRLTimer* seen = nullptr;
  bool cancelledBefore = false;
  timer->setBlock([&](BRLTimer& firing) {
    seen = &firing;
    cancelledBefore = firing.source()->testCancel();
    firing.setBlock({});
  });
  dispatch_->advance(5s);
  EXPECT_EQ(seen, timer.get());
  EXPECT_TRUE(cancelledBefore);
  EXPECT_FALSE(timer->block());
  EXPECT_EQ(firings_, Firings{});

  scheduled(5.0)->setBlock({});
  dispatch_->advance(5s);  // nothing to run, and no harm
}

TEST_F(BRLTimerTest, RunsTheWrappedBlockThatWasThereWhenScheduled) {
  const auto timer = make(1.0);
  const platform::dispatch_block_t original = timer->wrappedBlock();
  int ran = 0;
  timer->setWrappedBlock([&] { ++ran; });
  timer->setQueue(dispatch_->mainQueue());
  timer->schedule();
  timer->setWrappedBlock({});
  dispatch_->advance(1s);
  EXPECT_EQ(ran, 1);
  EXPECT_FALSE(timer->source()->testCancel()) << "cancelling is the original's part";
  queue_->async(original);
  dispatch_->runDue();
  EXPECT_EQ(firings_, Firings{1s});
}

TEST_F(BRLTimerTest, LivesWithoutItsCreatorUntilItFiredOrWasCancelled) {
  std::weak_ptr<BRLTimer> armed = scheduled(5.0);
  std::weak_ptr<BRLTimer> cancelled = scheduled(5.0);
  auto held = scheduled(5.0);
  held->suspend();
  EXPECT_FALSE(held->suspended()) << "the flag is left alone";
  std::weak_ptr<BRLTimer> suspended = std::exchange(held, nullptr);
  std::weak_ptr<BRLTimer> unscheduled = make(5.0);
  EXPECT_TRUE(unscheduled.expired());
  cancelled.lock()->cancel();
  EXPECT_TRUE(cancelled.expired());
  dispatch_->advance(5s);
  EXPECT_EQ(firings_, Firings{5s});
  EXPECT_TRUE(armed.expired());
  held = suspended.lock();
  ASSERT_TRUE(held);
  held->setSuspended(true);
  held->resume();
  EXPECT_TRUE(held->suspended());
  held.reset();
  dispatch_->runDue();
  EXPECT_EQ(firings_, (Firings{5s, 5s}));
  EXPECT_TRUE(suspended.expired());
}

}  // namespace
