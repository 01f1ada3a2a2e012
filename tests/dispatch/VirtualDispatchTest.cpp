#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dispatch/VirtualDispatch.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

class VirtualDispatchTest : public testing::Test {
 protected:
  std::shared_ptr<VirtualDispatch> dispatch_ = VirtualDispatch::make(Date(1'000s));
  dispatch_queue_t one_ = dispatch_->createQueue("one");
  dispatch_queue_t two_ = dispatch_->createQueue("two");
  std::vector<std::string> events_;

  dispatch_block_t note(const std::string& name) {
    return [this, name] { events_.push_back(name + "@" + std::to_string(dispatch_->now() / 1ms)); };
  }
  dispatch_source_t timer(const std::string& name, dispatch_time_t delay, dispatch_time_t leeway = 0s) {
    dispatch_source_t source = dispatch_->createTimer(one_);
    source->setEventHandler(note(name));
    source->setTimer(dispatch_->now() + delay, DISPATCH_TIME_FOREVER, leeway);
    source->resume();
    return source;
  }
  using Events = std::vector<std::string>;
};

TEST_F(VirtualDispatchTest, RunsEachThingAtItsOwnTimeAndEqualDeadlinesAsSubmitted) {
  dispatch_->after(5ms, one_, note("later"));
  dispatch_->after(2ms, two_, note("first"));
  const auto source = timer("timer", 2ms);
  dispatch_->after(2ms, two_, [this] {
    note("second")();
    one_->async(note("posted"));
    dispatch_->after(0s, two_, note("at once"));
    dispatch_->after(1ms, two_, note("soon"));
  });
  dispatch_->after(2ms, one_, note("third"));
  const auto pushedBack = timer("pushed back", 1ms);
  pushedBack->setTimer(3ms, DISPATCH_TIME_FOREVER, 0s);
  dispatch_->after(3ms, one_, note("after the push"));
  two_->async(note("now"));
  dispatch_->advance(4ms);
  EXPECT_EQ(events_, (Events{"now@0", "first@2", "timer@2", "second@2", "third@2", "posted@2", "at once@2",
                             "pushed back@3", "after the push@3", "soon@3"}));
  EXPECT_EQ(dispatch_->now(), 4ms);
  dispatch_->advanceTo(4ms);
  dispatch_->advanceTo(5ms);
  EXPECT_EQ(events_.back(), "later@5");
}

TEST_F(VirtualDispatchTest, NamesTheNextDeadlineAndCountsWhatIsPending) {
  EXPECT_EQ(dispatch_->nextDue(), std::nullopt);
  const auto source = timer("timer", 2ms);
  EXPECT_EQ(dispatch_->nextDue(), 2ms);
  source->setTimer(9ms, DISPATCH_TIME_FOREVER, 0s);
  EXPECT_EQ(dispatch_->nextDue(), 9ms);
  source->setTimer(7ms, DISPATCH_TIME_FOREVER, 0s);
  EXPECT_EQ(dispatch_->nextDue(), 7ms) << "between the first deadline and the one that was seen";
  dispatch_->after(8ms, one_, [] {});
  two_->async([] {});
  EXPECT_EQ(dispatch_->nextDue(), 0ms);
  EXPECT_EQ(dispatch_->pendingCount(), 3U);
  dispatch_->runDue();
  EXPECT_EQ(dispatch_->pendingCount(), 2U);
  source->suspend();
  EXPECT_EQ(dispatch_->nextDue(), 8ms);
  EXPECT_EQ(dispatch_->pendingCount(), 1U) << "a suspended timer is not going to fire";
  source->resume();
  EXPECT_EQ(dispatch_->pendingCount(), 2U);
  source->cancel();
  EXPECT_EQ(dispatch_->pendingCount(), 1U);
  dispatch_->runUntilIdle();
  EXPECT_EQ(dispatch_->now(), 8ms);
  EXPECT_TRUE(events_.empty());
}

TEST_F(VirtualDispatchTest, LeavesTheClockAtTheLastBlockWhenIdleAndMovesTheDateApartFromIt) {
  const auto source = timer("timer", 3ms);
  source->setTimer(4ms, DISPATCH_TIME_FOREVER, 0s);
  dispatch_->runUntilIdle();
  EXPECT_EQ(events_, (Events{"timer@4"}));
  EXPECT_EQ(dispatch_->date(), Date(1'000'004ms));
  dispatch_->setDate(Date(-5s));
  EXPECT_EQ(dispatch_->now(), 4ms);
  dispatch_->advance(7s + 999ns);
  EXPECT_EQ(dispatch_->date(), Date(2s));
}

TEST_F(VirtualDispatchTest, RunsWhatBecameOverdueDuringASkipInOrder) {
  dispatch_->after(3ms, one_, note("block"));
  const auto source = timer("timer", 2ms);
  dispatch_->skip(10ms);
  EXPECT_TRUE(events_.empty());
  one_->async(note("posted"));
  dispatch_->runDue();
  EXPECT_EQ(events_, (Events{"timer@10", "block@10", "posted@10"}));
}

TEST_F(VirtualDispatchTest, StopsAfterTheBlockThatItIsIn) {
  dispatch_->stop();  // nothing runs, so this is forgotten
  dispatch_->after(1ms, one_, [this] {
    note("outer")();
    two_->async(note("inner"));
    two_->async([this] { dispatch_->stop(); });
    two_->async(note("after inner stop"));
    dispatch_->advance(1ms);
    note("outer goes on")();
    dispatch_->stop();
  });
  dispatch_->advance(5ms);
  EXPECT_EQ(events_, (Events{"outer@1", "inner@1", "outer goes on@1"}));
  EXPECT_EQ(dispatch_->now(), 1ms);
  dispatch_->runUntilIdle();
  EXPECT_EQ(events_.back(), "after inner stop@1");
}

TEST_F(VirtualDispatchTest, FiresExactlyOrAsLateAsTheLeewayAllows) {
  const auto exact = timer("exact", 10s, 1s);
  dispatch_->advance(10s);
  EXPECT_EQ(events_, (Events{"exact@10000"}));

  const auto turnedLate = timer("late", 10s, 1s);
  dispatch_->after(10'500ms, one_, [] {});
  dispatch_->fireLate(true);
  EXPECT_EQ(dispatch_->nextDue(), 20'500ms);
  dispatch_->fireLate(false);
  EXPECT_EQ(dispatch_->nextDue(), 20s);
  dispatch_->fireLate(true);
  dispatch_->advance(5s);
  turnedLate->setTimer(25s, DISPATCH_TIME_FOREVER, 2s);
  dispatch_->runUntilIdle();
  EXPECT_EQ(events_.back(), "late@27000");
}

TEST_F(VirtualDispatchTest, ShufflesTiesOfDifferentQueuesOnlyAndAlwaysTheSameWay) {
  const auto order = [](uint64_t seed) {
    const auto dispatch = VirtualDispatch::make();
    const dispatch_queue_t queues[] = {dispatch->createQueue("a"), dispatch->createQueue("b"),
                                       dispatch->createQueue("c")};
    std::string text;
    for (int i = 0; i < 4; ++i) {
      if (i == 1) dispatch->shuffleTies(seed);
      for (const auto& queue : queues)
        queue->async([&, name = queue->label() + std::to_string(i)] { text += name; });
    }
    dispatch->runDue();
    return text;
  };
  std::set<std::string> orders;
  for (uint64_t seed = 0; seed < 20; ++seed) {
    const std::string text = order(seed);
    EXPECT_EQ(text, order(seed));
    for (const char queue : std::string("abc")) {
      std::string digits;
      for (size_t i = 0; i < text.size(); i += 2)
        if (text[i] == queue) digits += text[i + 1];
      EXPECT_EQ(digits, "0123") << text;
    }
    orders.insert(text);
  }
  EXPECT_GT(orders.size(), 10U);
}

TEST_F(VirtualDispatchTest, MayBeLetGoInsideABlock) {
  bool ran = false;
  auto* dispatch = dispatch_.get();
  one_->async([&] {
    dispatch_.reset();
    ran = true;
  });
  one_->async([] { FAIL() << "dropped with the service"; });
  dispatch->advance(1ms);
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace platform
