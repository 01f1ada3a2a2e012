#include <chrono>

#include <gmock/gmock.h>

#include "tests/bluetooth/HCIDriverFixture.h"

namespace {

using namespace platform;
using namespace platform::hci;
using namespace std::chrono_literals;
using support::ControllerModel;
using support::HCIDriverTest;
using testing::ElementsAre;
using testing::IsEmpty;
using Failure = HCITransport::Failure;

class HCIDriverLossTest : public HCIDriverTest, public testing::WithParamInterface<uint16_t> {};

TEST_P(HCIDriverLossTest, RepeatsACommandWhoseAnswerWasLost) {
  start();
  controller->loseAnswers(GetParam(), 2);
  driver->startScan({});
  dispatch->advance(3999ms);
  EXPECT_FALSE(isScanning() && GetParam() != opcode::kLESetScanEnable);
  dispatch->advance(1ms);
  EXPECT_TRUE(isScanning());
  EXPECT_EQ(driver->counters().commandTimeouts, 2U);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::poweredOn));
}

TEST_P(HCIDriverLossTest, GivesUpAControllerThatNeverAnswersAndTriesAgain) {
  start();
  controller->loseAnswers(GetParam(), 3);
  driver->startScan({});
  dispatch->advance(6s);
  const auto seen = takeStates();
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), CBManagerState::resetting);
  dispatch->advance(1s);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::poweredOn));
  EXPECT_TRUE(isScanning());
}

TEST_F(HCIDriverTest, TakesAnswersOfTheWrongLengthForNone) {
  start();
  const auto reads = {opcode::kReadLocalVersion, opcode::kReadLocalSupportedCommands,
                      opcode::kReadLocalSupportedFeatures, opcode::kLEReadLocalSupportedFeatures};
  for (const uint16_t opcode : reads) controller->refuse(opcode, status::kSuccess, 1);
  driver->startScan({});
  dispatch->advance(7999ms);
  EXPECT_FALSE(isScanning());
  dispatch->advance(1ms);
  EXPECT_TRUE(isScanning());
  EXPECT_EQ(driver->counters().malformed, 4U);
}

INSTANTIATE_TEST_SUITE_P(Commands, HCIDriverLossTest,
                         testing::Values(opcode::kReset, opcode::kReadLocalVersion,
                                         opcode::kReadLocalSupportedCommands,
                                         opcode::kLEReadLocalSupportedFeatures, opcode::kLESetEventMask,
                                         opcode::kLESetScanParameters, opcode::kLESetScanEnable),
                         [](const auto& tested) {
                           std::string name = textOfOpcode(tested.param);
                           std::erase(name, ' ');
                           return name;
                         });

TEST_F(HCIDriverTest, HearsEventsThatTheTransportCutsAnywhere) {
  for (const std::size_t piece : {1U, 2U, 3U, 7U, 20U}) {
    SCOPED_TRACE(piece);
    reports.clear();
    start();
    controller->cutInto(piece);
    driver->startScan({});
    dispatch->runDue();
    hear(1);
    hear(2);
    EXPECT_THAT(reports, ElementsAre(Report{"C0:00:00:00:00:01", data}, Report{"C0:00:00:00:00:02", data}));
    driver->close();
  }
}

TEST_F(HCIDriverTest, FindsBackIntoTheStreamAfterGarbage) {
  startScanning();
  Data stream = parameters({0x00, 0x77, 0x04, 0x3E, 0x00, 0x04, 0x04, 0xAA});
  for (const uint16_t number : {uint16_t{1}, uint16_t{2}}) {
    const Data report = ControllerModel::legacyReport(number, data);
    stream.insert(stream.end(), report.begin(), report.end());
  }
  for (const std::size_t piece : {0U, 1U}) {
    reports.clear();
    controller->cutInto(piece);
    controller->send(stream);
    dispatch->runDue();
    EXPECT_EQ(reports.size(), 2U) << "in pieces of " << piece;
  }
  EXPECT_EQ(driver->counters().skippedOctets, 16U);
  EXPECT_THAT(states, IsEmpty());
}

TEST_F(HCIDriverTest, PassesMalformedEventsOverAndCountsThem) {
  startScanning();
  const std::initializer_list<unsigned> malformed[] = {
      {0x04, 0x3E, 0x02, 0x02, 0x01},                              // one report, of no octets
      {0x04, 0x3E, 0x0C, 0x02, 1, 3, 1, 1, 2, 3, 4, 5, 6, 31, 0},  // more data announced than there is
      {0x04, 0x0E, 0x01, 0x01},                                    // an answer to no command
      {0x04, 0x0F, 0x02, 0x00, 0x01},
  };
  for (const auto& octets : malformed) controller->send(parameters(octets));
  controller->send(parameters({0x04, 0xFF, 0x00}));                    // a vendor's own, empty
  controller->send(parameters({0x02, 0x01, 0x00, 0x01, 0x00, 0x55}));  // data of a connection that is none
  hear(1);
  EXPECT_EQ(reports.size(), 1U);
  EXPECT_EQ(driver->counters().malformed, std::size(malformed));
  EXPECT_THAT(states, IsEmpty());
}

TEST_F(HCIDriverTest, SaysOnlyAFewLinesAboutAFloodOfFaults) {
  startScanning();
  for (int i = 0; i < 10'000; ++i) controller->send(parameters({0x04, 0x3E, 0x02, 0x02, 0x01}));
  dispatch->advance(60s);
  EXPECT_EQ(driver->counters().malformed, 10'000U);
  EXPECT_LT(lines.size(), 20U);
  controller->send(parameters({0x04, 0x3E, 0x02, 0x02, 0x01}));
  dispatch->runDue();
  EXPECT_TRUE(wasSaid("left out"));
}

TEST_F(HCIDriverTest, ResetsAfterAHardwareErrorAndScansAgain) {
  startScanning();
  controller->send(parameters({0x04, 0x10, 0x01, 0x42}));
  dispatch->runDue();
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::resetting));
  controller->model().reset();
  dispatch->advance(1s);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::poweredOn));
  hear(1);
  EXPECT_EQ(reports.size(), 1U);
}

TEST_F(HCIDriverTest, InitialisesAnewAControllerThatResetItself) {
  startScanning({.hasExtended = true});
  controller->model().reset();
  controller->send(ControllerModel::commandComplete(opcode::kReset, 1, parameters({0})));
  dispatch->runDue();
  hear(1, true);
  EXPECT_EQ(reports.size(), 1U) << "the event masks must have been set again";
  EXPECT_THAT(states, IsEmpty());
}

TEST_F(HCIDriverTest, WaitsForCreditsAndGoesOnWhenTheyCome) {
  start();
  controller->giveCredits(0);
  driver->startScan({});
  dispatch->advance(1s);
  EXPECT_THAT(controller->takeCommands(), ElementsAre(opcode::kReset));
  controller->giveCredits(1);
  controller->send(ControllerModel::commandComplete(opcode::kNone, 1, {}));
  dispatch->runDue();
  EXPECT_TRUE(isScanning());
  EXPECT_EQ(driver->counters().commandTimeouts, 0U);
}

TEST_F(HCIDriverTest, AControllerThatNeverGivesCreditsGetsItsCommandsSlowly) {
  start();
  controller->giveCredits(0);
  driver->startScan({});
  dispatch->advance(30s);
  EXPECT_TRUE(isScanning());
}

TEST_F(HCIDriverTest, KeepsAskingForAScanThatIsRefusedThenResetsTheController) {
  start();
  controller->refuse(opcode::kLESetScanParameters, 0x1F, 6);  // three times two ways
  driver->startScan({});
  dispatch->advance(500ms);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::poweredOn));
  EXPECT_TRUE(wasSaid("LE Set Scan Parameters with status 0x1F"));
  dispatch->advance(4s);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::resetting, CBManagerState::poweredOn));
  EXPECT_TRUE(isScanning());
}

TEST_F(HCIDriverTest, ABrokenLineIsOpenedAgainWithGrowingPauses) {
  startScanning();
  dispatch->advance(120s);
  controller->refuseConnections({Failure::lost, "busy"}, 1000);
  controller->takeTries();
  const auto broken = dispatch->now();
  controller->breakLine("cable pulled");
  dispatch->advance(300s);
  std::vector<int64_t> seconds;
  for (const auto time : controller->takeTries())
    seconds.push_back(std::chrono::duration_cast<std::chrono::seconds>(time - broken).count());
  EXPECT_THAT(seconds, ElementsAre(1, 3, 7, 15, 31, 63, 123, 183, 243));
  // Each reason is told when it is new, and nothing is said beside it.
  ASSERT_EQ(states.size(), 2U);
  EXPECT_EQ(states[0].reason, "cable pulled");
  EXPECT_EQ(states[1].reason, "busy");
  EXPECT_THAT(lines, IsEmpty());
  controller->refuseConnections({}, 0);
  dispatch->advance(60s);
  EXPECT_TRUE(isScanning());
  EXPECT_THAT(takeStates(),
              ElementsAre(CBManagerState::resetting, CBManagerState::resetting, CBManagerState::poweredOn));
}

TEST_F(HCIDriverTest, PausesKeepGrowingWhenEachConnectionBreaksAtOnce) {
  startScanning();
  int connections = controller->connectionCount();
  for (int i = 0; i < 1000; ++i) {
    controller->breakLine("again");
    dispatch->advance(100ms);
  }
  EXPECT_LE(controller->connectionCount() - connections, 7);  // 1 + 2 + 4 + 8 + 16 + 32 s, then 60
}

TEST_F(HCIDriverTest, TellsWhyThereIsNoRadioAndComesBack) {
  const struct {
    Failure failure;
    CBManagerState state;
    std::chrono::seconds longest;  // until it is noticed that the reason is gone
  } cases[] = {{Failure::lost, CBManagerState::resetting, 60s},
               {Failure::busy, CBManagerState::poweredOff, 4s},
               {Failure::absent, CBManagerState::poweredOff, 4s},
               {Failure::off, CBManagerState::poweredOff, 4s},
               {Failure::notPermitted, CBManagerState::unauthorized, 60s},
               {Failure::unsupported, CBManagerState::unsupported, 60s}};
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    controller = std::make_unique<support::ScriptedController>(dispatch, Traits{});
    controller->refuseConnections({one.failure, "a reason"}, 1'000'000);
    states.clear();
    openDriver();
    driver->startScan({});
    dispatch->advance(600s);
    ASSERT_EQ(states.size(), 1U);
    EXPECT_EQ(states[0].state, one.state);
    EXPECT_EQ(states[0].reason, "a reason");
    controller->refuseConnections({}, 0);
    dispatch->advance(one.longest);
    EXPECT_TRUE(isScanning());
    driver->close();
  }
}

}  // namespace
