#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/dispatch/WakeUpsTogether.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

class RealTimeDispatchTest : public testing::Test {
 protected:
  std::shared_ptr<RealTimeDispatch> dispatch_ = RealTimeDispatch::make();
  const dispatch_queue_t main_ = dispatch_->mainQueue();

  dispatch_source_t mainTimer(dispatch_time_t delay, dispatch_block_t handler, dispatch_time_t leeway = 0s) {
    dispatch_source_t source = dispatch_->createTimer(main_);
    source->setEventHandler(std::move(handler));
    source->setTimer(dispatch_->now() + delay, DISPATCH_TIME_FOREVER, leeway);
    source->resume();
    return source;
  }
  bool readable(int patience = 0) const {
    pollfd descriptor{dispatch_->fileDescriptor(), POLLIN, 0};
    return poll(&descriptor, 1, patience) == 1;
  }
};

TEST_F(RealTimeDispatchTest, RunsUntilStoppedAndKeepsTheRestForTheNextRun) {
  int ran = 0;
  for (int i = 0; i < 2; ++i) {
    main_->async([&] {
      dispatch_->stop();
      ++ran;
    });
  }
  EXPECT_TRUE(readable());
  dispatch_->run();
  EXPECT_EQ(ran, 1);
  dispatch_->run();
  EXPECT_EQ(ran, 2);
  EXPECT_FALSE(readable());
  dispatch_->stop();
  dispatch_->run();  // the stop came before
}

TEST_F(RealTimeDispatchTest, EveryStopEndsOneRunWheneverItComes) {
  constexpr int kRounds = 20'000;
  std::atomic<int> ended = 0;
  std::thread stopper([&] {
    for (int round = 0; round < kRounds; ++round) {
      while (ended < round) std::this_thread::yield();  // the run before may still be on its way out
      dispatch_->stop();
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    dispatch_->run();
    ended = round + 1;
  }
  stopper.join();
}

TEST_F(RealTimeDispatchTest, PollRunsWhatIsDueAndNotWhatThatSubmits) {
  int ran = 0;
  std::function<void()> again = [&] {
    ++ran;
    main_->async(again);
  };
  main_->async(again);
  main_->async([&] { ++ran; });
  dispatch_->after(1h, main_, [&] { ++ran; });
  EXPECT_EQ(dispatch_->poll(), 2U);
  EXPECT_EQ(dispatch_->poll(), 1U);
  EXPECT_EQ(ran, 3);
}

TEST_F(RealTimeDispatchTest, PollCountsNoWakeUpThatOnlyWentToSleepAgain) {
  int fired = 0;
  dispatch_->fileDescriptor();  // from here on it is kept up to date
  const auto source = mainTimer(1ms, [&] { ++fired; });
  source->setTimer(dispatch_->now() + 1h, DISPATCH_TIME_FOREVER, 0s);
  ASSERT_TRUE(readable(-1));
  EXPECT_EQ(dispatch_->poll(), 0U);
  EXPECT_EQ(fired, 0);
}

TEST_F(RealTimeDispatchTest, ShowsOnItsDescriptorWhetherPollHasSomethingToDo) {
  main_->async([] {});
  EXPECT_TRUE(readable()) << "posted before the descriptor was asked for";
  dispatch_->poll();
  EXPECT_FALSE(readable());

  dispatch_->createQueue("other")->async([this] { main_->async([] {}); });
  while (!readable()) std::this_thread::yield();
  EXPECT_EQ(dispatch_->poll(), 1U);

  const auto source = mainTimer(1h, [] {});
  EXPECT_FALSE(readable());
  source->setTimer(dispatch_->now(), DISPATCH_TIME_FOREVER, 0s);
  EXPECT_TRUE(readable()) << "a deadline that is due";
  source->cancel();
  EXPECT_FALSE(readable()) << "a cancelled one";
}

TEST_F(RealTimeDispatchTest, GathersTimersWithLeewayOnCommonInstants) {
  std::set<int64_t> turns;
  int64_t turn = 0;
  int fired = 0;
  std::vector<dispatch_source_t> sources;
  for (int i = 0; i < 8; ++i) {
    sources.push_back(mainTimer(
        std::chrono::milliseconds(10 + i),
        [&] {
          EXPECT_GE(dispatch_->now(), sources.at(0)->start());
          turns.insert(turn);
          if (++fired == 8) dispatch_->stop();
        },
        1s));
  }
  while (fired < 8) {
    ++turn;
    ASSERT_TRUE(readable(-1));
    dispatch_->poll();
  }
  EXPECT_LE(turns.size(), 2U) << "two, when the common instant lies between their deadlines";
}

// A wake-up that is lost lets this wait for ever.
TEST_F(RealTimeDispatchTest, WakesEachQueueOnceWhatWasSubmittedTogetherIsThere) {
  const dispatch_queue_t queues[] = {dispatch_->createQueue("first"), dispatch_->createQueue("second")};
  for (int round = 0; round < 500; ++round) {
    std::atomic<int> ran = 0;
    std::promise<void> isDone;
    {
      const WakeUpsTogether together;
      for (int i = 0; i < 4; ++i) {
        const WakeUpsTogether within;
        queues[i % 2]->async([&] {
          if (++ran == 4) isDone.set_value();
        });
      }
    }
    isDone.get_future().wait();
  }
}

TEST_F(RealTimeDispatchTest, EndsAQueueFromItsOwnBlock) {
  auto dropped = std::make_shared<std::atomic<bool>>(false);
  auto queue = dispatch_->createQueue("own end");
  queue->async([&queue, dropped] {
    queue.reset();
    *dropped = true;
  });
  while (!*dropped) std::this_thread::yield();

  auto service = RealTimeDispatch::make();
  auto ended = std::make_shared<std::atomic<bool>>(false);
  auto last = service->createQueue("last");
  std::exchange(last, nullptr)->async([held = std::move(service), ended]() mutable {
    held.reset();
    *ended = true;
  });
  while (!*ended) std::this_thread::yield();
}

TEST_F(RealTimeDispatchTest, EndsTheThreadOfAQueueThatNobodyHolds) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  const auto awake = dispatch_->createQueue("awake");  // the first thread may bring a sanitizer's own along
  const auto before = threads();
  std::vector<dispatch_queue_t> idle;  // most of them asleep by the end of the loop
  while (idle.size() < 20) idle.push_back(dispatch_->createQueue("idle"));
  idle.clear();
  dispatch_->createQueue("busy")->async([] {});
  dispatch_->after(1ms, dispatch_->createQueue("waiting"), [] {});
  while (threads() > before) std::this_thread::yield();
}

TEST_F(RealTimeDispatchTest, EndsTheServiceFromAMainQueueBlock) {
  main_->async([&] { dispatch_.reset(); });
  const auto due = mainTimer(0s, [] { FAIL(); });
  dispatch_->run();
  EXPECT_EQ(dispatch_, nullptr);
  EXPECT_TRUE(due->testCancel()) << "due, but not begun";
}

TEST_F(RealTimeDispatchTest, TellsMonotonicTimeAndTheDate) {
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  EXPECT_LE(before, dispatch_->now());
  EXPECT_GT(dispatch_->date(), Date(std::chrono::sys_days(std::chrono::year(2024) / 1 / 1)));
}

}  // namespace
}  // namespace platform
