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

bool isPermitted(const HCIAdapter& adapter, const RadioInventory& inventory) {
  return inventory.permissions.allow(!adapter.isUp);
}

std::string_view standingOf(const HCIAdapter& adapter, const RadioInventory& inventory) {
  if (isFree(adapter, inventory)) return "it is free";
  return inventory.bluez.daemon == Daemon::notPermitted ? "it is up, bluetoothd may not be asked,"
                                                        : "it is up, bluetoothd does not show it,";
}

RadioChoice hciChoice(const HCIAdapter& adapter, const RadioInventory& inventory) {
  std::string why = "chose " + adapter.name() + " over HCI: ";
  why.append(standingOf(adapter, inventory)).append(" and this process may drive it");
  if (adapter.isBlocked) why += ", but it is blocked; 'rfkill unblock bluetooth' frees it";
  return {"hci:" + std::to_string(adapter.index), false, std::move(why)};
}

RadioChoice bluezChoice(const RadioInventory& inventory) {
  std::string why = "chose bluetoothd: ";
  const auto permitted = [&](const HCIAdapter& adapter) { return isPermitted(adapter, inventory); };
  if (inventory.adapters.empty())
    why += "the kernel shows no adapter";
  else if (std::ranges::any_of(inventory.adapters, permitted))
    why += "it uses the adapter";
  else
    why += "HCI is not permitted, though " + hciPermissionHint(inventory.executable);
  return {"bluez", false, why.append(kLimit)};
}

}  // namespace

RadioChoice chooseRadio(const RadioInventory& inventory) {
  const auto& adapters = inventory.adapters;
  const auto permitted = [&](const HCIAdapter& adapter) { return isPermitted(adapter, inventory); };
  auto found = std::ranges::find_if(adapters, [&](const HCIAdapter& adapter) {
    return permitted(adapter) && isFree(adapter, inventory) && !adapter.isBlocked;
  });
  if (found == adapters.end() && inventory.bluez.adapters.empty())
    found = std::ranges::find_if(adapters, permitted);
  if (found != adapters.end()) return hciChoice(*found, inventory);
  if (!inventory.bluez.adapters.empty()) return bluezChoice(inventory);
  if (!adapters.empty()) {
    return {{},
            true,
            adapters.front().name() +
                " is there but may not be used: " + hciPermissionHint(inventory.executable)};
  }
  if (inventory.bluez.daemon == Daemon::notPermitted)
    return {{}, true, bluezRefusal(inventory.bluez.problem)};
  std::string why = "no radio: looked for adapters of the kernel (";
  why += inventory.adapterProblem.empty() ? "none is plugged in" : inventory.adapterProblem;
  why += ") and for bluetoothd on the system bus (";
  why += inventory.bluez.problem.empty() ? "it has no adapter" : inventory.bluez.problem;
  return {{}, false, why + ")"};
}

}  // namespace platform
