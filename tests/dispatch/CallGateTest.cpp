#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dispatch/CallGate.h"
#include "platform/dispatch/DelegateGate.h"

using namespace platform;
using namespace std::chrono_literals;

namespace {

constexpr auto kPatience = 1min;  // no test takes it
constexpr auto kMoment = 20ms;    // in which what must not happen could

/// A call through a gate on a thread of its own that lasts until it is let go.
template <class Gate>
class LastingCall {
 public:
  explicit LastingCall(Gate& gate) {
    thread_ = std::thread([&] {
      gate.call([&](auto&&...) {
        begun_.set_value();
        end_.get_future().wait();
      });
    });
    begun_.get_future().wait();
  }
  ~LastingCall() { end(); }
  void end() {
    if (!thread_.joinable()) return;
    end_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> begun_, end_;
  std::thread thread_;
};

bool isReady(std::future<void>& future, std::chrono::milliseconds patience = kPatience) {
  return future.wait_for(patience) == std::future_status::ready;
}

struct ClosingGate {
  std::atomic<int> closings = 0;
  CallGate gate{[this] { ++closings; }};
};

TEST(CallGate, LetsCallsThroughUntilItIsClosed) {
  ClosingGate closing;
  int calls = 0;
  closing.gate.call([&] { closing.gate.call([&] { ++calls; }); });
  EXPECT_THROW(closing.gate.call([] { throw std::runtime_error("from the call"); }), std::runtime_error);
  EXPECT_EQ(closing.closings, 0);
  closing.gate.close();
  closing.gate.close();
  closing.gate.call([&] { ++calls; });
  EXPECT_TRUE(closing.gate.isClosed());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(closing.closings, 1);
}

TEST(CallGate, ClosingWaitsForTheCallsOnOtherThreads) {
  ClosingGate closing;
  LastingCall first(closing.gate);
  LastingCall second(closing.gate);
  auto closed = std::async(std::launch::async, [&] { closing.gate.close(); });
  auto closedAgain = std::async(std::launch::async, [&] { closing.gate.close(); });
  EXPECT_FALSE(isReady(closed, kMoment));
  first.end();
  EXPECT_FALSE(isReady(closed, kMoment));
  EXPECT_FALSE(isReady(closedAgain, kMoment));
  EXPECT_EQ(closing.closings, 0);
  second.end();
  EXPECT_TRUE(isReady(closed));
  EXPECT_TRUE(isReady(closedAgain));
  EXPECT_EQ(closing.closings, 1);
}

TEST(CallGate, ClosedFromInsideItIsDoneWhenTheOutermostCallEnds) {
  std::promise<void> isInside;
  std::promise<void> mayEnd;
  std::atomic<int> closings = 0;
  std::optional<CallGate> gate;
  gate.emplace([&] {
    gate->close();  // from inside its own end
    std::this_thread::sleep_for(kMoment);
    ++closings;
  });
  std::thread caller([&] {
    gate->call([&] {
      gate->call([&] { gate->close(); });
      EXPECT_EQ(closings, 0);
      isInside.set_value();
      mayEnd.get_future().wait();
    });
    EXPECT_EQ(closings, 1);
  });
  isInside.get_future().wait();
  auto closed = std::async(std::launch::async, [&] {
    gate->close();
    EXPECT_EQ(closings, 1) << "another closer waits for the end, too";
  });
  EXPECT_FALSE(isReady(closed, kMoment));
  mayEnd.set_value();
  EXPECT_TRUE(isReady(closed));
  caller.join();
}

TEST(CallGate, CallsThatCloseOnTwoThreadsDoNotWaitForEachOther) {
  ClosingGate closing;
  std::atomic<int> inside = 0;
  const auto work = [&] {
    closing.gate.call([&] {
      ++inside;
      while (inside < 2) std::this_thread::yield();
      closing.gate.close();
    });
  };
  auto one = std::async(std::launch::async, work);
  auto other = std::async(std::launch::async, work);
  EXPECT_TRUE(isReady(one));
  EXPECT_TRUE(isReady(other));
  EXPECT_EQ(closing.closings, 1);
}

TEST(CallGate, ClosedUnderLoadItEndsOnceAndLetsNothingThroughAfterwards) {
  for (int round = 0; round < 100; ++round) {
    int guarded = 0;  // for the thread sanitizer: what the calls, one at a time, and the end work on
    std::mutex turn;
    std::atomic<bool> isOver = false;
    CallGate gate([&] { ++guarded; });
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
      callers.emplace_back([&, closes = i == round % 4] {
        for (int k = 0; k < 50; ++k) {
          gate.call([&] {
            EXPECT_FALSE(isOver);
            if (closes && k == 40) gate.close();
            const std::lock_guard lock(turn);
            ++guarded;
          });
        }
      });
    }
    gate.close();
    isOver = true;
    const int atTheEnd = guarded;
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(guarded, atTheEnd);
  }
}

struct Delegate {
  std::atomic<bool> isReplaced = false;
};

TEST(DelegateGate, ReplacingWaitsForCallsToTheEarlierDelegateOnly) {
  Delegate delegates[2];
  DelegateGate<Delegate> gate;
  gate.setDelegate(&delegates[0]);
  using Call = LastingCall<DelegateGate<Delegate>>;
  Call toFirst(gate);
  auto replaced = std::async(std::launch::async, [&] { gate.setDelegate(&delegates[1]); });
  const Delegate* called = nullptr;
  while (called != &delegates[1]) gate.call([&](const Delegate& delegate) { called = &delegate; });
  EXPECT_FALSE(isReady(replaced, kMoment));
  // From now on there is a call at every moment, but not the same one.
  auto toSecond = std::make_unique<Call>(gate);
  toFirst.end();
  for (int i = 0; i < 1000 && !isReady(replaced, 1ms); ++i) {
    auto next = std::make_unique<Call>(gate);
    toSecond = std::move(next);
  }
  EXPECT_TRUE(isReady(replaced, 0ms));
  toSecond.reset();
  gate.call([&](Delegate&) { gate.setDelegate(nullptr); });  // a call that replaces it itself
  gate.call([](Delegate&) { ADD_FAILURE() << "nobody is there"; });
}

TEST(DelegateGate, NoReplacedDelegateIsCalledUnderLoad) {
  Delegate lasting;
  DelegateGate<Delegate> gate;
  std::atomic<bool> isDone = false;
  std::thread caller([&] {
    while (!isDone) gate.call([](Delegate& delegate) { EXPECT_FALSE(delegate.isReplaced); });
  });
  for (int round = 0; round < 1000; ++round) {
    Delegate passing;
    gate.setDelegate(&passing);
    gate.setDelegate(round % 2 == 0 ? &lasting : nullptr);
    passing.isReplaced = true;
  }
  isDone = true;
  caller.join();
}

}  // namespace
