#include <chrono>

#include <gmock/gmock.h>

#include "platform/foundation/Hex.h"
#include "tests/bluetooth/HCIDriverFixture.h"

namespace {

using namespace platform;
using namespace platform::hci;
using namespace std::chrono_literals;
using support::ControllerModel;
using support::HCIDriverTest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(HCIDriverTest, InitialisesTheControllerBeforeItIsPoweredOn) {
  start();
  EXPECT_THAT(states, IsEmpty());
  dispatch->runDue();
  EXPECT_THAT(controller->takeCommands(),
              ElementsAre(opcode::kReset, opcode::kReadLocalVersion, opcode::kReadLocalSupportedCommands,
                          opcode::kReadLocalSupportedFeatures, opcode::kLEReadLocalSupportedFeatures,
                          opcode::kSetEventMask, opcode::kLESetEventMask));
  ASSERT_THAT(takeStates(), ElementsAre(CBManagerState::poweredOn));
  EXPECT_FALSE(isScanning());
}

TEST_F(HCIDriverTest, AsksForAnActiveScanThatAlwaysListensAndHidesNothing) {
  const Traits extended[] = {{.hasExtended = true},
                             {.hasLegacy = false, .hasExtended = true},
                             {.hasExtended = true, .hasCodedPhy = true},
                             {.hasExtended = true, .answersSupportedCommands = false}};
  const auto expectScan = [&](const Traits& traits, const char* parameters) {
    startScanning(traits);
    const auto& scan = *controller->model().scan();
    EXPECT_EQ(scan.isExtended, traits.hasExtended);
    EXPECT_FALSE(scan.hidesDuplicates);
    EXPECT_EQ(hexText(scan.parameters), parameters);
    hear(1, traits.hasExtended);
    hear(1, traits.hasExtended);
    EXPECT_THAT(reports, ElementsAre(Report{"C0:00:00:00:00:01", data}, Report{"C0:00:00:00:00:01", data}));
    reports.clear();
    driver->close();
  };
  expectScan({}, "01300030000000");
  for (const Traits& traits : extended) {
    SCOPED_TRACE(&traits - extended);
    expectScan(traits, "0000010130003000");
  }
}

// A report in fragments whose rest was not heard: it must not be taken for the head of a later one.
TEST_F(HCIDriverTest, ForgetsTheFragmentsOfAScanThatHasEnded) {
  for (const bool isEndedByOther : {false, true}) {
    SCOPED_TRACE(isEndedByOther);
    startScanning({.hasExtended = true}, isEndedByOther);
    if (isEndedByOther) {
      commandByOther(opcode::kSetEventMask, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1F, 0x00, 0x20});
      commandByOther(opcode::kLESetEventMask, {0x02, 0x10, 0, 0, 0, 0, 0, 0});
    }
    Data fragment = ControllerModel::extendedReport(1, parameters({0xAA}));
    fragment[5] = std::byte{0x20};  // more to come
    controller->send(fragment);
    dispatch->runDue();
    if (isEndedByOther) {
      commandByOther(opcode::kLESetExtendedScanEnable, {0, 0, 0, 0, 0, 0});
    } else {
      driver->stopScan();
      driver->startScan({});
    }
    dispatch->advance(250ms);
    ASSERT_TRUE(isScanning());
    hear(1, true);
    EXPECT_THAT(reports, ElementsAre(Report{"C0:00:00:00:00:01", data}));
    reports.clear();
    driver->close();
  }
}

TEST_F(HCIDriverTest, SaysNoVersionThatTheControllerDidNotTell) {
  start();
  controller->refuse(opcode::kReadLocalVersion, status::kUnknownCommand, 1);
  dispatch->runDue();
  ASSERT_EQ(states.size(), 1U);
  EXPECT_EQ(states[0].reason, "scripted, Bluetooth of a version that it does not tell, legacy scanning");
}

TEST_F(HCIDriverTest, IsUnsupportedWithoutLowEnergy) {
  start({.hasLE = false});
  driver->startScan({});
  dispatch->advance(10s);
  EXPECT_THAT(takeStates(), ElementsAre(CBManagerState::unsupported));
  EXPECT_FALSE(isScanning());
}

TEST_F(HCIDriverTest, BesideOthersItNeitherResetsNorMasks) {
  startScanning({}, true);
  driver->stopScan();
  driver->startScan({});
  dispatch->runDue();
  EXPECT_TRUE(isScanning());
  driver->close();
  openDriver();
  dispatch->runDue();
  const auto commands = controller->takeCommands();
  EXPECT_THAT(commands, testing::Not(Contains(opcode::kReset)));
  EXPECT_THAT(commands, testing::Not(Contains(opcode::kSetEventMask)));
  EXPECT_THAT(commands, testing::Not(Contains(opcode::kLESetEventMask)));
}

TEST_F(HCIDriverTest, BesideOthersItBeginsAnewWhenTheyEndTheScan) {
  startScanning({}, true);
  commandByOther(opcode::kLESetScanEnable, {0, 0});
  dispatch->runDue();
  EXPECT_FALSE(isScanning()) << "the other one is left to finish";
  dispatch->advance(250ms);
  EXPECT_TRUE(isScanning());
  EXPECT_TRUE(wasSaid("another program"));
}

TEST_F(HCIDriverTest, BesideOthersItReplacesAScanThatHidesDuplicates) {
  startScanning({}, true);
  commandByOther(opcode::kLESetScanEnable, {0, 0});
  commandByOther(opcode::kLESetScanParameters, {0, 0x12, 0, 0x12, 0, 0, 0});
  commandByOther(opcode::kLESetScanEnable, {1, 1});
  dispatch->advance(1s);
  ASSERT_TRUE(isScanning());
  EXPECT_FALSE(controller->model().scan()->hidesDuplicates);
  EXPECT_EQ(octetAt(controller->model().scan()->parameters, 0), 1) << "active";
}

TEST_F(HCIDriverTest, BesideOthersAScanThatHearsEverythingIsLeftAlone) {
  startScanning({}, true);
  commandByOther(opcode::kLESetScanEnable, {1, 0});
  dispatch->advance(10s);
  EXPECT_THAT(controller->takeCommands(), IsEmpty());
}

TEST_F(HCIDriverTest, BesideOthersItGivesWayMoreAndMoreToOneThatInsists) {
  startScanning({}, true);
  const auto starts = driver->counters().scanStarts;
  for (int i = 0; i < 600; ++i) {  // ten times a second, a minute long
    if (isScanning()) commandByOther(opcode::kLESetScanEnable, {0, 0});
    dispatch->advance(100ms);
  }
  EXPECT_LT(driver->counters().scanStarts - starts, 10U);
  dispatch->advance(70s);
  EXPECT_TRUE(isScanning());
}

TEST_F(HCIDriverTest, TakesAnotherProgramsScanOverWhenParametersAreRefusedDuringIt) {
  start({}, true);
  dispatch->runDue();
  commandByOther(opcode::kLESetScanEnable, {1, 1});
  driver->startScan({});
  dispatch->runDue();
  ASSERT_TRUE(isScanning());
  EXPECT_FALSE(controller->model().scan()->hidesDuplicates);
}

TEST_F(HCIDriverTest, UsesTheFamilyOfCommandsThatAnotherProgramHasClaimed) {
  start({.hasExtended = true}, true);
  dispatch->runDue();
  commandByOther(opcode::kLESetScanParameters, {1, 0x10, 0, 0x10, 0, 0, 0});
  driver->startScan({});
  dispatch->runDue();
  ASSERT_TRUE(isScanning());
  EXPECT_FALSE(controller->model().scan()->isExtended);
}

}  // namespace
