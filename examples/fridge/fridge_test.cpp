// The alarm without a radio and without waiting: an hour in the air takes no time.

#include <vector>

#include <gtest/gtest.h>

#include "FridgeAlarm.h"

using std::chrono::minutes;
using std::chrono::seconds;

struct FridgeAlarmTest : testing::Test {
  std::shared_ptr<brenloft::SimulatedAir> air = brenloft::SimulatedAir::make();
  brenloft::Search search = *brenloft::Search::start({.air = air});
  std::vector<std::string> told;
  FridgeAlarm alarm{"C0-C1-5C-00-00-01", [this](const std::string& line) { told.push_back(line); }};

  // The beacon sends this every ten seconds for so long.
  void measures(double temperature, seconds duration) {
    const int number = air->repeat(
        {.id = "C0-C1-5C-00-00-01", .temperatureCelsius = temperature, .relativeHumidityPercent = 40},
        seconds(10));
    air->advance(duration);
    air->silence(number);
    for (const auto& event : search) alarm.heard(event);
  }
};

TEST_F(FridgeAlarmTest, IsRaisedOnceAfterTenMinutesAndClearedByCold) {
  measures(9.5, minutes(9));
  EXPECT_TRUE(told.empty());
  measures(9.5, minutes(20));
  EXPECT_EQ(told, std::vector<std::string>{"the fridge is too warm: 9.500000 °C"});
  measures(7.5, minutes(20));
  EXPECT_EQ(told.size(), 1U);
  measures(4.0, seconds(10));
  EXPECT_EQ(told.back(), "the fridge is cold again");
}

TEST_F(FridgeAlarmTest, ForgivesAnOpenDoor) {
  for (int i = 0; i < 10; ++i) {
    measures(9.5, minutes(5));
    measures(5.0, minutes(1));
  }
  EXPECT_TRUE(told.empty());
}

TEST_F(FridgeAlarmTest, TellsOfSilence) {
  measures(4.0, minutes(1));
  air->advance(minutes(1));
  for (const auto& event : search) alarm.heard(event);
  EXPECT_EQ(told, std::vector<std::string>{"no word from the fridge"});
}
