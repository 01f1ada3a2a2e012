#include <random>

#include "tests/sdk/ManagerFixture.h"

// The lost check beside the plain rule that it stands for: of the list as it was at the beginning, in its
// order, each record that is present and was last heard at the cutoff or before. Records, exit time and date
// change at random, before the check and at its delegate's hands.

namespace {

using platform::Date;

class LostCheck : public ManagerTest {
 protected:
  LostCheck() : ManagerTest({.location = SimulatedPlatformOptions::Location::scripted}) {
    startSearch(1);
    handlers_.forBeacon = [this](BRLContextManager&, const auto& beacon) {
      if (isChecking_ && beacon->status() == kBRLLost) lost(*beacon);
    };
    manager().setDelegate(&handlers_);
    manager().setBeaconGroupType(2);
    hear("FFF0");
  }

  // One check, at the deadline of the one sensor beacon.
  void check() {
    for (int changes = below(6); changes > 0; --changes) change(below(6));
    const double delay = manager().beaconExitTime();
    next_ = 0;
    end_ = manager().rangeBeaconSensors().size();
    isChecking_ = true;
    hear("FFF0");
    if (delay > 0) {
      for (int changes = below(6); changes > 0; --changes) change(below(5));
      end_ = manager().rangeBeaconSensors().size();
      simulated.advance(BRLTimer::durationOf(delay));
    }
    isChecking_ = false;
    passOver(end_);
  }

  int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

  int losses = 0;

 private:
  void lost(const BRLBeaconDataModel& beacon) {
    ++losses;
    size_t number = 0;
    while (&record(number) != &beacon) ++number;
    ASSERT_LT(number, end_) << "not there at the beginning";
    ASSERT_LE(next_, number) << "out of order";
    EXPECT_TRUE(isSilent(beacon));
    passOver(number);
    next_ = number + 1;
    for (int changes = below(3); changes > 0; --changes) change(below(6));
  }
  // Since the last loss nothing has changed: what the check has left out must not have been silent.
  void passOver(size_t number) {
    for (; next_ < number; ++next_)
      EXPECT_FALSE(record(next_).status() == kBRLPresent && isSilent(record(next_))) << "record " << next_;
  }
  bool isSilent(const BRLBeaconDataModel& beacon) {
    const Date cutoff =
        simulated.clock().date() - milliseconds(static_cast<int64_t>(manager().beaconExitTime() * 1000));
    return platform::wholeSecondsSince1970(*beacon.statusUpdatedDate()) <=
           platform::wholeSecondsSince1970(cutoff);
  }

  Date dateNear() { return simulated.clock().date() + milliseconds(below(30'000) - 20'000); }
  void change(int what) {
    const auto& list = manager().rangeBeaconSensors();
    auto& beacon = *list[static_cast<size_t>(below(static_cast<int>(list.size())))];
    if (what == 0) beacon.setStatusValue(below(3));
    if (what == 1) beacon.setStatusUpdatedDate(dateNear());
    if (what == 2)
      simulated.scriptedLocation().ranged({{{}, 1, static_cast<uint16_t>(below(30)), -60}}, nullptr,
                                          platform::ScriptedLocationService::Delivery::callingThread);
    if (what == 3) manager().setBeaconExitTime(below(40) / 4.0 - 1);
    if (what == 4 && below(10) == 0) simulated.clock().setDate(dateNear());
    if (what == 5) simulated.advance(milliseconds(below(2000)));
  }

  const unsigned seed_ = std::random_device{}();
  const testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
  std::mt19937 random_{seed_};
  BRLDelegateHandlers handlers_;
  bool isChecking_ = false;
  size_t next_ = 0;  // the record that the rule looks at next
  size_t end_ = 0;
};

TEST_F(LostCheck, FindsWhatTheRuleFindsWhateverChangesMeanwhile) {
  for (int checks = 0; checks < 5000 && !HasFailure(); ++checks) check();
  EXPECT_GT(losses, 5000);
}

}  // namespace
