#include "platform/bluetooth/radios/RadioInventory.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <system_error>

#include <unistd.h>

namespace platform {
namespace {

namespace fs = std::filesystem;
using State = RadioCandidate::State;
using Daemon = BlueZInventory::Daemon;

constexpr unsigned kCapNetAdmin = 12;  // linux/capability.h
constexpr unsigned kCapNetRaw = 13;

constexpr std::string_view kBlockedSoftly = "blocked by software; 'rfkill unblock bluetooth' frees it";
constexpr std::string_view kBlockedHard = "blocked by the machine's own radio switch";

std::string firstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

std::vector<fs::path> entriesOf(const fs::path& folder, std::initializer_list<std::string_view> prefixes) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename();
    if (std::ranges::any_of(prefixes, [&](std::string_view prefix) { return name.starts_with(prefix); }))
      entries.push_back(it->path());
  }
  std::ranges::sort(entries);
  return entries;
}

/// Why the kernel keeps Bluetooth radios of this name from working; empty when it does not.
std::string_view blockOf(const fs::path& root, const std::string& adapter) {
  std::string_view why;
  for (const auto& folder : entriesOf(root / "sys/class/rfkill", {"rfkill"})) {
    const std::string name = firstLine(folder / "name");
    const bool isOther = name.starts_with("hci") && name != adapter;
    if (firstLine(folder / "type") != "bluetooth" || isOther) continue;
    if (firstLine(folder / "hard") == "1") return kBlockedHard;
    if (firstLine(folder / "soft") == "1") why = kBlockedSoftly;
  }
  return why;
}

RadioCandidate candidateFor(const HCIAdapter& adapter, const RadioInventory& inventory,
                            const fs::path& root) {
  RadioCandidate candidate{.address = "hci:" + std::to_string(adapter.index),
                           .name = adapter.name() + " (" + adapter.address.text() + ")",
                           .why = {}};
  const std::string_view block = blockOf(root, adapter.name());
  if (!inventory.permissions.netRaw || !(inventory.permissions.netAdmin || adapter.isUp)) {
    candidate.state = State::notPermitted;
    candidate.why = permissionHint(inventory.executable);
  } else if (!block.empty() || adapter.isBlocked) {
    candidate.state = State::blocked;
    candidate.why = block.empty() ? kBlockedSoftly : block;
  } else if (!adapter.isUp) {
    candidate.why = "free: taken over while hearing, every advertisement is heard";
  } else if (inventory.bluez.daemon == Daemon::present) {
    candidate.why = "heard beside bluetoothd, which shares the scan and may end it";
  } else {
    candidate.why = "up: heard beside whoever brought it up";
  }
  return candidate;
}

RadioCandidate candidateFor(const BlueZAdapter& adapter, const fs::path& root) {
  RadioCandidate candidate{.address = "bluez:" + adapter.name,
                           .name = adapter.name + " (" + adapter.address + ")",
                           .why = "through bluetoothd; a beacon may be reported only once in ten seconds"};
  const std::string_view block = blockOf(root, adapter.name);
  if (adapter.isPowered) return candidate;
  if (adapter.isBlocked || !block.empty()) {
    candidate.state = State::blocked;
    candidate.why = block.empty() ? kBlockedSoftly : block;
  } else {
    candidate.state = State::off;
    candidate.why = "switched off; 'bluetoothctl power on' switches it on";
  }
  return candidate;
}

/// bluetoothd itself, when it has nothing to offer.
RadioCandidate candidateFor(const BlueZInventory& bluez) {
  RadioCandidate candidate{
      .address = "bluez", .name = "bluetoothd", .state = State::absent, .why = bluez.problem};
  if (bluez.daemon == Daemon::present) candidate.why = "bluetoothd has no adapter";
  if (bluez.daemon == Daemon::absent) candidate.why += "; 'systemctl start bluetooth' starts it";
  if (bluez.daemon == Daemon::notPermitted) candidate.state = State::notPermitted;
  return candidate;
}

RadioCandidate candidateFor(const fs::path& serialDevice, const fs::path& root) {
  const std::string device = "/" + serialDevice.lexically_relative(root).string();
  RadioCandidate candidate{
      .address = "h4:" + device,
      .name = device,
      .why = "a serial line; hears if an HCI controller (H4) is on it, ',BAUD' sets the speed"};
  if (::access(serialDevice.c_str(), R_OK | W_OK) != 0) {
    candidate.state = State::notPermitted;
    candidate.why = "'usermod -aG dialout USER' permits the serial line from the next login on";
  }
  return candidate;
}

}  // namespace

std::string_view textOf(RadioCandidate::State state) {
  switch (state) {
    case State::usable:
      return "usable";
    case State::absent:
      return "absent";
    case State::blocked:
      return "blocked";
    case State::off:
      return "off";
    case State::inUse:
      return "in use";
    case State::notPermitted:
      return "not permitted";
  }
  return "";
}

RadioPermissions RadioPermissions::ofThisProcess(const fs::path& root) {
  constexpr std::string_view kKey = "CapEff:";
  std::ifstream status(root / "proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kKey)) continue;
    const auto effective = std::strtoull(line.c_str() + kKey.size(), nullptr, 16);
    return {.netRaw = ((effective >> kCapNetRaw) & 1U) != 0,
            .netAdmin = ((effective >> kCapNetAdmin) & 1U) != 0};
  }
  return {};
}

std::string permissionHint(const std::string& executable) {
  return "\"setcap 'cap_net_raw,cap_net_admin+eip' " + executable +
         "\" permits it, or 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' in a systemd unit";
}

RadioInventory RadioInventory::take(const RadioProbe& probe) {
  RadioInventory inventory;
  inventory.permissions = RadioPermissions::ofThisProcess(probe.root);
  std::error_code error;
  inventory.executable = fs::read_symlink(probe.root / "proc/self/exe", error).string();
  inventory.adapters = probe.listAdapters(inventory.adapterProblem);
  inventory.bluez = probe.listBlueZ();

  auto& candidates = inventory.candidates;
  for (const auto& adapter : inventory.adapters)
    candidates.push_back(candidateFor(adapter, inventory, probe.root));
  if (inventory.adapters.empty()) {
    candidates.push_back(
        {"hci", "the kernel's adapters", State::absent,
         inventory.adapterProblem.empty() ? "no adapter is plugged in" : inventory.adapterProblem});
  }
  for (const auto& adapter : inventory.bluez.adapters)
    candidates.push_back(candidateFor(adapter, probe.root));
  if (inventory.bluez.adapters.empty()) candidates.push_back(candidateFor(inventory.bluez));
  for (const auto& device : entriesOf(probe.root / "dev", {"ttyACM", "ttyUSB"}))
    candidates.push_back(candidateFor(device, probe.root));
  return inventory;
}

}  // namespace platform
