#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/bluetooth/radios/RadioInventory.h"
#include "platform/bluetooth/radios/RadioSource.h"
#include "platform/dispatch/VirtualDispatch.h"

using namespace platform;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

using Daemon = BlueZInventory::Daemon;
const std::string kSetcap = "\"setcap 'cap_net_raw,cap_net_admin+eip' /opt/brenloft\"";
const std::string kAmbient = "'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN'";

/// A machine made of files and of what the kernel and the daemon are said to answer.
class Machine {
 public:
  Machine() {
    std::string pattern = fs::temp_directory_path() / "brenloft-machine-XXXXXX";
    root_ = ::mkdtemp(pattern.data());
    fs::create_directories(root_ / "proc/self");
    fs::create_directories(root_ / "dev");
    fs::create_symlink("/opt/brenloft", root_ / "proc/self/exe");
    capabilities("0000000000000000");
  }
  ~Machine() { fs::remove_all(root_); }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  void capabilities(const std::string& effective) {
    std::ofstream(root_ / "proc/self/status")
        << "Name:\tbrenloft\nCapPrm:\tffffffffffffffff\nCapEff:\t" << effective << "\n";
  }
  void privileged() { capabilities("0000000000003000"); }
  void rfkill(const std::string& name, const std::string& type, int soft, int hard) {
    const fs::path folder = root_ / "sys/class/rfkill" / ("rfkill" + std::to_string(switches_++));
    fs::create_directories(folder);
    std::ofstream(folder / "name") << name << "\n";
    std::ofstream(folder / "type") << type << "\n";
    std::ofstream(folder / "soft") << soft << "\n";
    std::ofstream(folder / "hard") << hard << "\n";
  }
  fs::path serialLine() {
    std::ofstream(root_ / "dev/ttyACM0") << "";
    return root_ / "dev/ttyACM0";
  }
  RadioProbe probe() const {
    return {.root = root_,
            .listAdapters =
                [this](std::string& problem) {
                  problem = kernelProblem;
                  return adapters;
                },
            .listBlueZ = [this] { return bluez; }};
  }

  std::vector<HCIAdapter> adapters;
  std::string kernelProblem;
  BlueZInventory bluez{Daemon::absent, "bluetoothd is not running", {}};

 private:
  fs::path root_;
  int switches_ = 0;
};

HCIAdapter adapter(int index, bool isUp) {
  return {.index = index, .address = *BluetoothAddress::fromText("00:AA:01:00:00:42"), .isUp = isUp};
}

BlueZInventory daemonWith(bool isPowered) {
  return {Daemon::present, {}, {{"hci0", "00:AA:01:00:00:42", isPowered, false}}};
}

std::vector<std::string> linesOf(const Machine& machine) {
  std::vector<std::string> lines;
  for (const auto& candidate : RadioInventory::take(machine.probe()).candidates)
    lines.push_back(candidate.address + " " + std::string(textOf(candidate.state)) + ": " + candidate.why);
  return lines;
}

RadioSourceResult sourceFor(const Machine& machine, const std::string& address, std::string* said = nullptr) {
  return makeRadioSource({.address = address,
                          .dispatch = VirtualDispatch::make(),
                          .onDiagnostic =
                              [said](std::string_view line) {
                                if (said != nullptr) *said = line;
                              },
                          .probe = machine.probe()});
}

TEST(RadioInventory, SaysOfEachRadioHowItHearsOrWhyNot) {
  Machine machine;
  EXPECT_THAT(linesOf(machine),
              ElementsAre("hci absent: no adapter is plugged in",
                          "bluez absent: bluetoothd is not running; 'systemctl start bluetooth' starts it"));

  machine.adapters = {adapter(0, false)};
  machine.bluez = {Daemon::notPermitted, "rejected", {}};
  machine.serialLine();
  EXPECT_THAT(
      linesOf(machine),
      ElementsAre("hci:0 not permitted: " + kSetcap + " permits it, or " + kAmbient + " in a systemd unit",
                  "bluez not permitted: rejected", HasSubstr("h4:/dev/ttyACM0 usable")));

  machine.privileged();
  machine.bluez = daemonWith(false);
  machine.rfkill("phy0", "wlan", 1, 0);
  machine.rfkill("hci7", "bluetooth", 1, 1);
  EXPECT_THAT(
      linesOf(machine),
      ElementsAre(HasSubstr("hci:0 usable: free"),
                  "bluez:hci0 off: switched off; 'bluetoothctl power on' switches it on", HasSubstr("h4:")));
  machine.rfkill("hci0", "bluetooth", 1, 0);
  EXPECT_THAT(linesOf(machine)[0],
              HasSubstr("hci:0 blocked: blocked by software; 'rfkill unblock bluetooth'"));
  EXPECT_THAT(linesOf(machine)[1], HasSubstr("bluez:hci0 blocked: blocked by software"));
  machine.rfkill("laptop-bluetooth", "bluetooth", 0, 1);
  EXPECT_THAT(linesOf(machine)[0], HasSubstr("hci:0 blocked: blocked by the machine's own radio switch"));
}

TEST(RadioInventory, ReadsTheCapabilitiesThatCount) {
  struct Case {
    const char* effective;
    bool netRaw, netAdmin;
  };
  Machine machine;
  for (const auto& [effective, netRaw, netAdmin] :
       {Case{"000001ffffffffff", true, true}, Case{"0000000000002000", true, false},
        Case{"0000000000001000", false, true}, Case{"0000000000000fff", false, false}}) {
    machine.capabilities(effective);
    const auto found = RadioPermissions::ofThisProcess(machine.probe().root);
    EXPECT_EQ(found.netRaw, netRaw) << effective;
    EXPECT_EQ(found.netAdmin, netAdmin) << effective;
  }
}

TEST(AutomaticRadio, IsHCIWherePermittedAndFreeAndTheDaemonOtherwise) {
  struct Case {
    const char* name;
    bool isPrivileged, isUp, isBlocked, hasDaemon;
    std::string address, why;
  };
  const std::vector<Case> cases = {
      {"free", true, false, false, true, "hci:0", "over HCI: it is free"},
      {"up, but nobody's", true, true, false, false, "hci:0", "over HCI"},
      {"the daemon's", true, true, false, true, "bluez", "it uses the adapter"},
      {"not permitted", false, true, false, true, "bluez", kSetcap},
      {"blocked, with the daemon", true, false, true, true, "bluez", ""},
      {"blocked, alone", true, false, true, false, "hci:0", "'rfkill unblock bluetooth'"},
      {"nothing permitted", false, true, false, false, "", kAmbient},
  };
  for (const auto& one : cases) {
    Machine machine;
    if (one.isPrivileged) machine.privileged();
    machine.adapters = {adapter(0, one.isUp)};
    machine.adapters[0].isBlocked = one.isBlocked;
    if (one.hasDaemon) machine.bluez = daemonWith(one.isUp);
    const auto choice = chooseRadio(RadioInventory::take(machine.probe()));
    EXPECT_EQ(choice.address, one.address) << one.name;
    EXPECT_EQ(choice.isForbidden, one.address.empty()) << one.name;
    EXPECT_THAT(choice.why, HasSubstr(one.why)) << one.name;
  }
}

TEST(AutomaticRadio, SaysWhatWasLookedForWhenThereIsNone) {
  Machine machine;
  machine.kernelProblem = "no Bluetooth in this kernel";
  const auto nothing = sourceFor(machine, "auto");
  ASSERT_TRUE(nothing.problem);
  EXPECT_EQ(nothing.problem->kind, RadioProblem::Kind::noRadio);
  EXPECT_EQ(
      nothing.problem->text,
      "no radio: looked for adapters of the kernel (no Bluetooth in this kernel) and for bluetoothd on the "
      "system bus (bluetoothd is not running); '--source demo' works without a radio");

  machine.bluez = daemonWith(true);
  std::string said;
  EXPECT_TRUE(sourceFor(machine, "auto", &said).source);
  EXPECT_THAT(said, HasSubstr("chose bluetoothd: HCI is not permitted"));
  EXPECT_THAT(said, HasSubstr("once in ten seconds"));
}

TEST(RadioSource, IsMadeOrRefusedBeforeAnythingIsOpened) {
  using Kind = RadioProblem::Kind;
  struct Case {
    std::string address;
    bool isPrivileged;
    std::optional<Kind> problem;
    std::string text;
  };
  Machine machine;
  machine.adapters = {adapter(0, true), adapter(1, false)};
  machine.adapters[1].address = *BluetoothAddress::fromText("00:AA:01:00:00:43");
  machine.bluez = daemonWith(true);
  const std::string serial = machine.serialLine();
  const std::vector<Case> cases = {
      {"bluez", false, {}, {}},
      {"bluez:hci0", false, {}, {}},
      {"bluez:0", false, {}, {}},
      {"bluez:00:aa:01:00:00:42", false, {}, {}},
      {"bluez:hci1", false, Kind::noRadio, "looked for hci1 at bluetoothd: not there; '--source demo'"},
      {"bluez:", false, Kind::usage, "bluez:hciN"},
      {"bluez:eth0", false, Kind::usage, "bluez:hciN"},
      {"hci:0", true, {}, {}},
      {"hci", true, {}, {}},
      {"hci:00:AA:01:00:00:43?user", true, {}, {}},
      {"hci:0", false, Kind::notPermitted, "hci0 may not be used: " + kSetcap},
      {"hci:5", true, Kind::noRadio, "looked for hci:5 among the kernel's adapters: not there"},
      {"hci:x", true, Kind::usage, ""},
      {"h4:" + serial, false, {}, {}},
      {"h4:/nowhere,115200", true, Kind::noRadio, "looked for the serial line /nowhere"},
      {"h4:unix:/nowhere", true, Kind::noRadio, "looked for the socket /nowhere"},
      {"capture:file", true, Kind::usage, "names no radio"},
      {"", true, Kind::usage, "names no radio"},
      {"h4", true, Kind::usage, "names no radio"},
  };
  for (const auto& one : cases) {
    machine.capabilities(one.isPrivileged ? "0000000000003000" : "0000000000000000");
    const auto result = sourceFor(machine, one.address);
    EXPECT_EQ(result.source != nullptr, !one.problem) << one.address;
    ASSERT_EQ(result.problem.has_value(), one.problem.has_value()) << one.address;
    if (!one.problem) continue;
    EXPECT_EQ(result.problem->kind, *one.problem) << one.address;
    EXPECT_THAT(result.problem->text, HasSubstr(one.text)) << one.address;
  }
  machine.capabilities("0000000000002000");  // enough beside somebody else, not for taking over
  EXPECT_TRUE(sourceFor(machine, "hci:0").source);
  EXPECT_FALSE(sourceFor(machine, "hci:0?user").source);
  EXPECT_FALSE(sourceFor(machine, "hci:1").source);
}

}  // namespace
