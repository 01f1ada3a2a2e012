#include "platform/bluetooth/radios/RadioInventory.h"

#include <algorithm>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "platform/bluetooth/Rfkill.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using State = RadioCandidate::State;
using Daemon = BlueZInventory::Daemon;

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

RadioCandidate candidateFor(const HCIAdapter& adapter, const RadioInventory& inventory,
                            const fs::path& root) {
  RadioCandidate candidate{
      .address = "hci:" + std::to_string(adapter.index), .name = adapter.title(), .why = {}};
  const std::string_view block = adapter.isUp ? "" : rfkillBlockOf(adapter.name(), root);
  if (!inventory.permissions.allow(adapter.isToTakeOver())) {
    candidate.state = State::notPermitted;
    candidate.why = inventory.permissions.hint(inventory.executable);
  } else if (adapter.isTaken) {
    candidate.state = State::taken;
    candidate.why = "another program has it to itself; heard as soon as that has ended";
  } else if (!block.empty()) {
    candidate.state = State::blocked;
    candidate.why = block;
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
  const std::string_view block = rfkillBlockOf(adapter.name, root);
  if (adapter.isPowered) return candidate;
  if (adapter.isBlocked || !block.empty()) {
    candidate.state = State::blocked;
    candidate.why = block.empty() ? kBlockedBySoftware : block;
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
  if (bluez.daemon == Daemon::notPermitted) {
    candidate.state = State::notPermitted;
    candidate.why = bluezRefusal(bluez.problem);
  }
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
    case State::taken:
      return "in use";
    case State::notPermitted:
      return "not permitted";
  }
  return "";
}

RadioInventory RadioInventory::take(const RadioProbe& probe) {
  RadioInventory inventory;
  inventory.permissions = HCIPermissions::ofThisProcess(probe.root);
  inventory.executable = ownExecutable(probe.root);
  if (auto adapters = probe.listAdapters())
    inventory.adapters = *std::move(adapters);
  else
    inventory.adapterError = adapters.error();
  inventory.bluez = probe.listBlueZ();

  auto& candidates = inventory.candidates;
  for (const auto& adapter : inventory.adapters)
    candidates.push_back(candidateFor(adapter, inventory, probe.root));
  if (inventory.adapters.empty()) {
    candidates.push_back(
        {"hci", "the kernel's adapters", State::absent,
         inventory.adapterError ? inventory.adapterError->text : "no adapter is plugged in"});
  }
  for (const auto& adapter : inventory.bluez.adapters)
    candidates.push_back(candidateFor(adapter, probe.root));
  if (inventory.bluez.adapters.empty()) candidates.push_back(candidateFor(inventory.bluez));
  for (const auto& device : entriesOf(probe.root / "dev", {"ttyACM", "ttyUSB"}))
    candidates.push_back(candidateFor(device, probe.root));
  return inventory;
}

}  // namespace platform
