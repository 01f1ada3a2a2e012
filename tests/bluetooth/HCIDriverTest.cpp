#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/Hex.h"
#include "tests/support/ScriptedController.h"

namespace {

using namespace platform;
using namespace platform::hci;
using namespace std::chrono_literals;
using support::ControllerModel;
using support::ScriptedController;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// A driver on virtual time with a scripted controller, and what it told.
class HCIDriverTest : public testing::Test {
 protected:
  using Traits = ControllerModel::Traits;

  struct Report {
    std::string address;
    Data data;
    bool operator==(const Report&) const = default;
  };

  ~HCIDriverTest() override {
    if (driver) driver->close();
  }

  void start(Traits traits = {}, bool shared = false) {
    controller = std::make_unique<ScriptedController>(dispatch, traits);
    controller->setShared(shared);
    openDriver();
  }

  void openDriver() {
    driver = HCIDriver::make(
        {dispatch, controller->factory(), [this](std::string_view line) { lines.emplace_back(line); }});
    driver->open(
        [this](const AdvertisingReport& report) {
          reports.push_back({report.address.text(), toData(report.data)});
        },
        [this](const RadioState& state) { states.push_back(state); });
  }

  /// Started, scanning, and nothing noted yet.
  void startScanning(Traits traits = {}, bool shared = false) {
    start(traits, shared);
    driver->startScan({});
    dispatch->runDue();
    ASSERT_TRUE(isScanning());
    controller->takeCommands();
    states.clear();
    lines.clear();
  }

  bool isScanning() const { return controller->model().scan().has_value(); }
  void hear(uint16_t number, bool extended = false) {
    controller->advertise(number, data, extended);
    dispatch->runDue();
  }
  void commandByOther(uint16_t opcode, std::initializer_list<unsigned> octets) {
    controller->commandByOther(commandPacket(opcode, parameters(octets)));
  }
  std::vector<CBManagerState> takeStates() {
    std::vector<CBManagerState> taken;
    for (const auto& state : states) taken.push_back(state.state);
    states.clear();
    return taken;
  }
  bool wasSaid(std::string_view part) const {
    return std::ranges::any_of(lines, [&](const auto& line) { return line.find(part) != std::string::npos; });
  }

  std::shared_ptr<VirtualDispatch> dispatch = VirtualDispatch::make();
  std::unique_ptr<ScriptedController> controller;
  std::shared_ptr<HCIDriver> driver;
  Data data = parameters({0x02, 0x01, 0x06, 0x05, 0xFF, 0x34, 0x12, 0xAB, 0xCD});
  std::vector<Report> reports;
  std::vector<RadioState> states;
  std::vector<std::string> lines;
};

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
  commandByOther(opcode::kLESetScanEnable, {0, 0});
  dispatch->advance(250ms);
  EXPECT_TRUE(isScanning()) << "one that left it alone for a while is waited for briefly again";
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

// What goes wrong: answers, octets, controllers and lines.

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
  controller->refuseConnections({Error::Kind::failed, "busy"}, 1000);
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
  dispatch->advance(180s);
  connections = controller->connectionCount();
  controller->breakLine("after a good while");
  dispatch->advance(1s);
  EXPECT_EQ(controller->connectionCount() - connections, 1);
}

TEST_F(HCIDriverTest, TellsWhyThereIsNoRadioAndComesBack) {
  const struct {
    Error::Kind kind;
    CBManagerState state;
    std::chrono::seconds longest;  // until it is noticed that the reason is gone
  } cases[] = {{Error::Kind::failed, CBManagerState::resetting, 60s},
               {Error::Kind::busy, CBManagerState::poweredOff, 4s},
               {Error::Kind::absent, CBManagerState::poweredOff, 4s},
               {Error::Kind::off, CBManagerState::poweredOff, 4s},
               {Error::Kind::notPermitted, CBManagerState::unauthorized, 60s},
               {Error::Kind::unsupported, CBManagerState::unsupported, 60s}};
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    controller = std::make_unique<support::ScriptedController>(dispatch, Traits{});
    controller->refuseConnections({one.kind, "a reason"}, 1'000'000);
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
