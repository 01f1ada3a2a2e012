#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/support/ScriptedController.h"

namespace support {

/// A driver on virtual time with a scripted controller, and what it told.
class HCIDriverTest : public testing::Test {
 protected:
  using Traits = ControllerModel::Traits;

  struct Report {
    std::string address;
    platform::Data data;
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
    driver = platform::HCIDriver::make(
        {dispatch, controller->factory(), [this](std::string_view line) { lines.emplace_back(line); }});
    driver->open(
        [this](const platform::AdvertisingReport& report) {
          reports.push_back({report.address.text(), platform::toData(report.data)});
        },
        [this](const platform::RadioState& state) { states.push_back(state); });
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
    controller->commandByOther(platform::hci::commandPacket(opcode, platform::hci::parameters(octets)));
  }
  std::vector<platform::CBManagerState> takeStates() {
    std::vector<platform::CBManagerState> taken;
    for (const auto& state : states) taken.push_back(state.state);
    states.clear();
    return taken;
  }
  bool wasSaid(std::string_view part) const {
    for (const auto& line : lines) {
      if (line.find(part) != std::string::npos) return true;
    }
    return false;
  }

  std::shared_ptr<platform::VirtualDispatch> dispatch = platform::VirtualDispatch::make();
  std::unique_ptr<ScriptedController> controller;
  std::shared_ptr<platform::HCIDriver> driver;
  platform::Data data = platform::hci::parameters({0x02, 0x01, 0x06, 0x05, 0xFF, 0x34, 0x12, 0xAB, 0xCD});
  std::vector<Report> reports;
  std::vector<platform::RadioState> states;
  std::vector<std::string> lines;
};

}  // namespace support
