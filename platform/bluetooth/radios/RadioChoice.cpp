#include <algorithm>

#include "platform/bluetooth/radios/RadioInventory.h"

namespace platform {
namespace {

using Daemon = BlueZInventory::Daemon;
constexpr std::string_view kLimit = "; a beacon may be reported only once in ten seconds";

/// Nobody else works with the adapter.
bool isFree(const HCIAdapter& adapter, const RadioInventory& inventory) {
  return !adapter.isUp || inventory.bluez.daemon == Daemon::absent || inventory.bluez.daemon == Daemon::noBus;
}

RadioChoice hciChoice(const HCIAdapter& adapter) {
  std::string why = "chose " + adapter.name() + " over HCI: it is free and this process may drive it";
  if (adapter.isBlocked) why += ", but it is blocked; 'rfkill unblock bluetooth' frees it";
  return {"hci:" + std::to_string(adapter.index), false, std::move(why)};
}

RadioChoice bluezChoice(const RadioInventory& inventory) {
  std::string why = "chose bluetoothd: ";
  if (inventory.permissions.mayDriveHCI())
    why += inventory.adapters.empty() ? "the kernel shows no adapter" : "it uses the adapter";
  else
    why += "HCI is not permitted, though " + permissionHint(inventory.executable);
  return {"bluez", false, why.append(kLimit)};
}

}  // namespace

RadioChoice chooseRadio(const RadioInventory& inventory) {
  const auto& adapters = inventory.adapters;
  if (inventory.permissions.mayDriveHCI()) {
    auto found = std::ranges::find_if(
        adapters, [&](const auto& adapter) { return isFree(adapter, inventory) && !adapter.isBlocked; });
    if (found == adapters.end() && inventory.bluez.adapters.empty()) found = adapters.begin();
    if (found != adapters.end()) return hciChoice(*found);
  }
  if (!inventory.bluez.adapters.empty()) return bluezChoice(inventory);
  if (!adapters.empty()) {
    return {
        {},
        true,
        adapters.front().name() + " is there but may not be used: " + permissionHint(inventory.executable)};
  }
  if (inventory.bluez.daemon == Daemon::notPermitted)
    return {{}, true, "bluetoothd refuses this user: " + inventory.bluez.problem};
  std::string why = "no radio: looked for adapters of the kernel (";
  why += inventory.adapterProblem.empty() ? "none is plugged in" : inventory.adapterProblem;
  why += ") and for bluetoothd on the system bus (";
  why += inventory.bluez.problem.empty() ? "it has no adapter" : inventory.bluez.problem;
  return {{}, false, why + ")"};
}

}  // namespace platform
