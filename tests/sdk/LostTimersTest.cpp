#include <gmock/gmock.h>

#include "tests/sdk/ManagerFixture.h"

// When a beacon that fell silent is found lost, and when it is not.

namespace {

using platform::dispatch_block_t;
using platform::dispatch_queue_t;
using platform::dispatch_source_t;
using platform::dispatch_time_t;
using testing::ElementsAre;

class LostTimers : public ManagerTest {
 protected:
  LostTimers() { startSearch(1); }
};

TEST_F(LostTimers, LosesASilentBeaconAtItsDeadlineAndKeepsItsLastDate) {
  hear("FFF0");
  simulated.advance(milliseconds(300));
  hear("FFF0");
  const auto heard = record(0).statusUpdatedDate();
  expectLossAfter(seconds(5));
  EXPECT_EQ(record(0).statusUpdatedDate(), heard);
}

TEST_F(LostTimers, FindsTheLossAtTheFirstCheckWhateverTheExitTime) {
  hear("FFF0");
  std::string missed;
  const auto tryExitTime = [&](int hundredths, nanoseconds afterAWholeSecond) {
    simulated.advance(seconds(1) - simulated.clock().now() % seconds(1) + afterAWholeSecond);
    manager().setBeaconExitTime(hundredths / 100.0);
    hear("FFF0");
    simulated.advance(milliseconds(10 * hundredths));
    if (record(0).status() != kBRLLost) missed += " " + std::to_string(hundredths / 100.0);
  };
  for (int hundredths = 1; hundredths <= 30'000; hundredths += hundredths < 1'000 ? 1 : 10) {
    tryExitTime(hundredths, nanoseconds(0));
    tryExitTime(hundredths, nanoseconds(999));  // still the same microsecond
  }
  EXPECT_EQ(missed, "");
}

TEST_F(LostTimers, ADelegateThatCallsALostBeaconPresentIsToldNoMoreUntilTheBeaconIsHeard) {
  BRLDelegateHandlers handlers;
  int losses = 0;
  dispatch_block_t atLoss;
  handlers.forBeacon = [&](BRLContextManager&, const auto& beacon) {
    if (beacon->status() != kBRLLost) return;
    ++losses;
    beacon->setStatusValue(kBRLPresent);
    if (const auto work = std::exchange(atLoss, nullptr)) work();
  };
  manager().setDelegate(&handlers);
  hear("FFF0");
  hear("FFF0");
  simulated.advance(seconds(60));
  EXPECT_EQ(losses, 1);
  atLoss = [&] { hear("FFF0"); };  // and heard while the delegate is at work
  hear("FFF0");
  simulated.advance(seconds(5));
  EXPECT_EQ(losses, 2);
  simulated.advance(seconds(60));
  EXPECT_EQ(losses, 3);
}

TEST_F(LostTimers, ABeaconHeardOnceOnAnEmptyListIsSweptOnlyByAnothersTimer) {
  hear("FFF0");
  simulated.advance(seconds(600));
  EXPECT_EQ(record(0).status(), 1);
  hear("FFF1");  // its timer is made by the walk over the first record
  simulated.advance(seconds(5));
  EXPECT_EQ(record(0).status(), 2);
  EXPECT_EQ(record(1).status(), 2);
}

TEST_F(LostTimers, AdvertisementsPushTheLossBackWhateverTheOrderOfTheRecords) {
  for (const char* service : {"FFF0", "FFF1", "FFF0", "FFF1"}) hear(service);
  for (int i = 0; i < 10; ++i) {
    simulated.advance(seconds(1));
    hear(i % 2 != 0 ? "FFF0" : "FFF1");
  }
  EXPECT_EQ(record(0).status(), 1);
  EXPECT_EQ(record(1).status(), 1);
  listener.take();
  simulated.advance(seconds(10));
  EXPECT_THAT(listener.take(), ElementsAre("beacon FFF1 2", "beacon FFF0 2"));
}

TEST_F(LostTimers, AnExitTimeRaisedBeforeTheCheckSparesTheRecordUntilItIsHeardAndSilentAgain) {
  hear("FFF0");
  hear("FFF0");
  manager().setBeaconExitTime(60.0);
  simulated.advance(seconds(300));
  EXPECT_EQ(record(0).status(), 1);
  hear("FFF0");  // its timer has fired; a new one takes the new exit time
  expectLossAfter(seconds(60));
}

TEST_F(LostTimers, ClearedTimersFindNoLossUntilTheEntryIsGone) {
  hear("FFF0");
  hear("FFF0");
  manager().clearRemainingTimers();
  simulated.advance(seconds(60));
  hear("FFF0");
  simulated.advance(seconds(60));
  EXPECT_EQ(record(0).status(), 1);
  hear("FFF1");
  simulated.advance(seconds(5));  // the other one's check finds both
  hear("FFF0");
  EXPECT_EQ(record(0).status(), 1);
  simulated.advance(seconds(5));
  EXPECT_EQ(record(0).status(), 2);
}

TEST_F(LostTimers, ATimerThatFiredDuringAPauseIsMadeAnewWhenItsBeaconIsHeardAgain) {
  const auto hearBoth = [&] {
    for (const char* service : {"FFF0", "FFF1", "FFF0"}) hear(service);
  };
  hearBoth();
  manager().stop();
  simulated.advance(seconds(10));
  listener.take();
  manager().start();
  simulated.advance({});
  hearBoth();
  listener.take();
  simulated.advance(seconds(5));
  EXPECT_THAT(listener.take(), ElementsAre("beacon FFF0 2", "beacon FFF1 2"));
}

TEST_F(LostTimers, ATimerThatFiresWhileTheDelegateIsAtWorkIsMadeAnewAfterwards) {
  BRLDelegateHandlers handlers;
  dispatch_time_t work{};
  handlers.forBeacon = [&](BRLContextManager&, const auto&) { simulated.advance(std::exchange(work, {})); };
  manager().setDelegate(&handlers);
  hear("FFF0");
  hear("FFF0");
  simulated.advance(milliseconds(4900));
  work = milliseconds(200);
  hear("FFF0");
  EXPECT_EQ(record(0).status(), 1) << "the check came after the refresh";
  expectLossAfter(seconds(5));
}

// A timer source that lets something happen between the decision to fire and the firing.
class InterruptedTimer final : public platform::dispatch_source_timer {
 public:
  InterruptedTimer(dispatch_source_t source, dispatch_block_t& interruption)
      : source_(std::move(source)), interruption_(interruption) {}

  void setEventHandler(dispatch_block_t handler) override {
    source_->setEventHandler([&interruption = interruption_, handler = std::move(handler)] {
      if (const auto interrupt = std::exchange(interruption, nullptr)) interrupt();
      handler();
    });
  }
  void setTimer(dispatch_time_t start, dispatch_time_t interval, dispatch_time_t leeway) override {
    source_->setTimer(start, interval, leeway);
  }
  void suspend() override { source_->suspend(); }
  void resume() override { source_->resume(); }
  void cancel() override { source_->cancel(); }
  bool testCancel() const override { return source_->testCancel(); }
  dispatch_time_t start() const override { return source_->start(); }
  dispatch_time_t leeway() const override { return source_->leeway(); }

 private:
  const dispatch_source_t source_;
  dispatch_block_t& interruption_;
};

class InterruptedDispatch final : public platform::DispatchService {
 public:
  explicit InterruptedDispatch(std::shared_ptr<platform::DispatchService> service)
      : service_(std::move(service)) {}

  dispatch_time_t now() const override { return service_->now(); }
  platform::Date date() const override { return service_->date(); }
  const dispatch_queue_t& mainQueue() const override { return service_->mainQueue(); }
  dispatch_queue_t createQueue(std::string_view label) override { return service_->createQueue(label); }
  dispatch_source_t createTimer(const dispatch_queue_t& queue) override {
    return std::make_shared<InterruptedTimer>(service_->createTimer(queue), interruption);
  }
  void after(dispatch_time_t delay, const dispatch_queue_t& queue, dispatch_block_t block) override {
    service_->after(delay, queue, std::move(block));
  }

  dispatch_block_t interruption;  // runs once

 private:
  const std::shared_ptr<platform::DispatchService> service_;
};

class InterruptedLostTimers : public ManagerTest {
 protected:
  InterruptedLostTimers()
      : ManagerTest({}, [](platform::Platform& services) {
          services.dispatch = std::make_shared<InterruptedDispatch>(services.dispatch);
        }) {
    startSearch(1);
    hear("FFF0");
    hear("FFF0");
  }

  const std::shared_ptr<InterruptedDispatch> dispatch =
      std::static_pointer_cast<InterruptedDispatch>(simulated.services().dispatch);
};

TEST_F(InterruptedLostTimers, AnAdvertisementBetweenTheDecisionToFireAndTheFiringCounts) {
  dispatch->interruption = [&] { hear("FFF0"); };
  simulated.advance(seconds(5));
  EXPECT_FALSE(dispatch->interruption);
  EXPECT_EQ(record(0).status(), 1);
  expectLossAfter(seconds(5));
}

TEST_F(InterruptedLostTimers, ATimerClearedAtThatMomentStaysDead) {
  dispatch->interruption = [&] {
    hear("FFF0");
    manager().clearRemainingTimers();
  };
  simulated.advance(seconds(5));
  hear("FFF0");
  simulated.advance(seconds(60));
  EXPECT_EQ(record(0).status(), 1);
}

}  // namespace
