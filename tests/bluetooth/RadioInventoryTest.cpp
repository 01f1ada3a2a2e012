#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/radios/RadioInventory.h"
#include "platform/bluetooth/radios/RadioSource.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/foundation/TemporaryFolder.h"

using namespace platform;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

using Daemon = BlueZInventory::Daemon;
const std::string kSetcap = "\"setcap 'cap_net_raw,cap_net_admin+eip' /opt/brenloft\"";
const std::string kAmbient = "'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN'";
const std::string kSandbox =
    "its sandbox keeps capabilities from it; 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' and the same "
    "'CapabilityBoundingSet=' in its systemd unit permit it, or '--cap-add NET_RAW";
const std::string kRefusal =
    "bluetoothd refuses this user: rejected; 'usermod -aG bluetooth USER' or a bus policy for org.bluez "
    "permits it";
const std::string kNothing = "0000000000000fff";
const std::string kRaw = "0000000000002000";
const std::string kAdmin = "0000000000001000";
const std::string kBoth = "000001ffffffffff";

/// A machine made of files and of what the kernel and the daemon are said to answer.
class Machine {
 public:
  Machine() {
    fs::create_directories(root_ / "proc/self");
    fs::create_directories(root_ / "dev");
    fs::create_symlink("/opt/brenloft", root_ / "proc/self/exe");
    capabilities(kNothing);
  }

  void capabilities(const std::string& effective) {
    std::ofstream(root_ / "proc/self/status")
        << "Name:\tbrenloft\nCapPrm:\tffffffffffffffff\nCapEff:\t" << effective << "\n"
        << sandbox;
  }
  void rfkill(const std::string& name, const std::string& type, int soft, int hard) {
    const fs::path folder = root_ / "sys/class/rfkill" / ("rfkill" + std::to_string(switches_++));
    fs::create_directories(folder);
    const std::pair<const char*, std::string> files[] = {
        {"name", name}, {"type", type}, {"soft", std::to_string(soft)}, {"hard", std::to_string(hard)}};
    for (const auto& [file, content] : files) std::ofstream(folder / file) << content << "\n";
  }
  fs::path serialLine() {
    std::ofstream(root_ / "dev/ttyACM0") << "";
    return root_ / "dev/ttyACM0";
  }
  RadioProbe probe() const {
    return {.root = root_.path(),
            .listAdapters = [this]() -> platform::Result<std::vector<HCIAdapter>> {
              if (!kernelError.empty()) return Error{.text = kernelError};
              return adapters;
            },
            .listBlueZ = [this] { return bluez; }};
  }

  std::vector<HCIAdapter> adapters;
  std::string sandbox = "CapBnd:\t000001ffffffffff\nNoNewPrivs:\t0\n";
  std::string kernelError;
  BlueZInventory bluez{Daemon::absent, "bluetoothd is not running", {}};

 private:
  const test::TemporaryFolder root_;
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

RadioSourceResult sourceFor(const Machine& machine, const std::string& address,
                            const std::function<void(std::string_view)>& onDiagnostic = {}) {
  return makeRadioSource({address, VirtualDispatch::make(), onDiagnostic, machine.probe()});
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
                  "bluez not permitted: " + kRefusal, HasSubstr("h4:/dev/ttyACM0 usable")));

  machine.capabilities(kBoth);
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

const std::string kOverHCI = "hci:00:AA:01:00:00:42";
const std::string kThroughBlueZ = "bluez:00:AA:01:00:00:42";

TEST(AutomaticRadio, IsHCIWherePermittedAndFreeAndTheDaemonOtherwise) {
  struct Case {
    const char* name;
    std::string capabilities;
    bool isUp, isBlocked;
    Daemon daemon;
    std::string address, why;
  };
  const std::vector<Case> cases = {
      {"free", kBoth, false, false, Daemon::present, kOverHCI, "over HCI: it is free"},
      {"up, but nobody's", kBoth, true, false, Daemon::absent, kOverHCI, "over HCI: it is free"},
      {"the daemon's", kBoth, true, false, Daemon::present, kThroughBlueZ, "it uses the adapter"},
      {"up, the daemon hidden", kBoth, true, false, Daemon::notPermitted, kOverHCI,
       "over HCI: it is up, bluetoothd may not be asked, and this process"},
      {"not permitted", kNothing, true, false, Daemon::present, kThroughBlueZ, kSetcap},
      {"taking over is permitted", kAdmin, false, false, Daemon::present, kOverHCI, "it is free"},
      {"but nothing else", kAdmin, true, false, Daemon::present, kThroughBlueZ, kSetcap},
      {"sharing is permitted", kRaw, true, false, Daemon::absent, kOverHCI, "it is free"},
      {"but no taking over", kRaw, false, false, Daemon::present, kThroughBlueZ, kSetcap},
      {"blocked, with the daemon", kBoth, false, true, Daemon::present, kThroughBlueZ, ""},
      {"blocked, alone", kBoth, false, true, Daemon::absent, kOverHCI, "'rfkill unblock bluetooth'"},
      {"nothing permitted", kNothing, true, false, Daemon::absent, "", kAmbient},
  };
  // By its address, so that a stranger that takes its number is not heard.
  for (const auto& one : cases) {
    Machine machine;
    machine.capabilities(one.capabilities);
    machine.adapters = {adapter(0, one.isUp)};
    machine.adapters[0].isBlocked = one.isBlocked;
    machine.bluez =
        one.daemon == Daemon::present ? daemonWith(one.isUp) : BlueZInventory{one.daemon, "rejected", {}};
    const auto choice = chooseRadio(RadioInventory::take(machine.probe()));
    EXPECT_EQ(choice.address, one.address) << one.name;
    EXPECT_EQ(choice.isForbidden, one.address.empty()) << one.name;
    EXPECT_THAT(choice.why, HasSubstr(one.why)) << one.name;
  }
}

TEST(AutomaticRadio, LeavesAnAdapterToTheProgramThatHasItToItself) {
  Machine machine;
  machine.capabilities(kAdmin);
  machine.adapters = {adapter(0, true), adapter(1, false)};
  machine.adapters[0].isTaken = true;
  machine.adapters[1].address = {};  // it has none of its own
  EXPECT_THAT(linesOf(machine)[0],
              "hci:0 in use: another program has it to itself; heard as soon as that has ended");
  EXPECT_EQ(chooseRadio(RadioInventory::take(machine.probe())).address, "hci:1");
  machine.adapters.pop_back();
  const auto choice = chooseRadio(RadioInventory::take(machine.probe()));
  EXPECT_EQ(choice.address, kOverHCI);
  EXPECT_THAT(choice.why, HasSubstr("when that has ended this process may drive it"));
  EXPECT_TRUE(sourceFor(machine, "hci:0")) << "it will be down then";
}

TEST(AutomaticRadio, SaysWhatWasLookedForWhenThereIsNone) {
  Machine machine;
  machine.kernelError = "no Bluetooth in this kernel";
  const auto nothing = sourceFor(machine, "auto");
  ASSERT_FALSE(nothing);
  EXPECT_EQ(nothing.error().kind, Error::Kind::absent);
  EXPECT_EQ(
      nothing.error().text,
      "no radio: looked for adapters of the kernel (no Bluetooth in this kernel) and for bluetoothd on the "
      "system bus (bluetoothd is not running)");

  machine.bluez = {Daemon::notPermitted, "rejected", {}};
  for (const char* address : {"auto", "bluez"}) {
    const auto refused = sourceFor(machine, address);
    ASSERT_FALSE(refused) << address;
    EXPECT_EQ(refused.error().kind, Error::Kind::notPermitted) << address;
    EXPECT_THAT(refused.error().text, HasSubstr(kRefusal)) << address;
  }

  // Both reasons, and setcap only where the kernel would heed it.
  machine.kernelError.clear();
  machine.adapters = {adapter(0, true)};
  machine.bluez = {Daemon::noBus, "the bus is away", {}};
  for (const char* sandbox : {"NoNewPrivs:\t1\n", "CapBnd:\t0000000000001000\n", ""}) {
    machine.sandbox = sandbox;
    machine.capabilities(kNothing);
    const auto forbidden = sourceFor(machine, "auto");
    ASSERT_FALSE(forbidden) << sandbox;
    EXPECT_EQ(forbidden.error().kind, Error::Kind::notPermitted) << sandbox;
    EXPECT_THAT(forbidden.error().text, HasSubstr("hci0 (00:AA:01:00:00:42) may not be used: " +
                                                  (*sandbox == 0 ? kSetcap : kSandbox)));
    EXPECT_THAT(forbidden.error().text, HasSubstr("(the bus is away)"));
  }
  machine.adapters.clear();

  machine.bluez = daemonWith(true);
  std::string said;
  EXPECT_TRUE(sourceFor(machine, "auto", [&](std::string_view line) { said = line; }));
  EXPECT_THAT(said, HasSubstr("chose hci0 (00:AA:01:00:00:42) through bluetoothd: the kernel shows no"));
  EXPECT_THAT(said, HasSubstr("once in ten seconds"));
}

TEST(RadioSource, IsMadeOrRefusedBeforeAnythingIsOpened) {
  using Kind = Error::Kind;
  struct Case {
    std::string address, capabilities;
    std::optional<Kind> error;
    std::string text;
  };
  Machine machine;
  machine.adapters = {adapter(0, true), adapter(1, false)};
  machine.adapters[1].address = *BluetoothAddress::fromText("00:AA:01:00:00:43");
  machine.bluez = daemonWith(true);
  const std::string file = machine.serialLine();
  const std::vector<Case> cases = {
      {"bluez", kNothing, {}, {}},
      {"bluez:hci0", kNothing, {}, {}},
      {"bluez:0", kNothing, {}, {}},
      {"bluez:00:aa:01:00:00:42", kNothing, {}, {}},
      {"bluez:hci1", kNothing, Kind::absent, "looked for hci1 at bluetoothd: not there"},
      {"bluez:", kNothing, Kind::unsupported, "bluez:hciN"},
      {"bluez:eth0", kNothing, Kind::unsupported, "bluez:hciN"},
      {"hci:0", kBoth, {}, {}},
      {"hci", kBoth, {}, {}},
      {"hci:00:AA:01:00:00:43?user", kBoth, {}, {}},
      {"hci:0", kNothing, Kind::notPermitted, "hci0 may not be used: " + kSetcap},
      {"hci:5", kBoth, Kind::absent, "looked for hci:5 among the kernel's adapters: not there"},
      // Enough beside somebody else, not for taking over; and the other way round.
      {"hci:0", kRaw, {}, {}},
      {"hci:0?user", kRaw, Kind::notPermitted, {}},
      {"hci:1", kRaw, Kind::notPermitted, {}},
      {"hci:0", kAdmin, Kind::notPermitted, {}},
      {"hci:0?user", kAdmin, {}, {}},
      {"hci:1", kAdmin, {}, {}},
      {"hci:x", kBoth, Kind::unsupported, {}},
      {"h4:/dev/null", kNothing, {}, {}},  // a device; only opening it would tell more
      {"h4:" + file, kBoth, Kind::absent, "looked for the serial line " + file + ": that is none"},
      {"h4:unix:" + file, kBoth, Kind::absent, "looked for the socket " + file + ": that is none"},
      {"h4:/nowhere,115200", kBoth, Kind::absent, "looked for the serial line /nowhere"},
      {"capture:file", kBoth, Kind::unsupported, "names no radio"},
      {"h4", kBoth, Kind::unsupported, "names no radio"},
  };
  for (const auto& one : cases) {
    machine.capabilities(one.capabilities);
    const auto result = sourceFor(machine, one.address);
    ASSERT_EQ(static_cast<bool>(result), !one.error) << one.address;
    if (!one.error) continue;
    EXPECT_EQ(result.error().kind, *one.error) << one.address;
    EXPECT_THAT(result.error().text, HasSubstr(one.text)) << one.address;
  }
}

}  // namespace
