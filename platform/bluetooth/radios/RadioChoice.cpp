#include <algorithm>

#include "platform/bluetooth/radios/RadioInventory.h"

namespace platform {
namespace {

using Daemon = BlueZInventory::Daemon;
constexpr std::string_view kLimit = "; a beacon may be reported only once in ten seconds";

/// Nobody else works with the adapter.
bool isFree(const HCIAdapter& adapter, const RadioInventory& inventory) {
  if (adapter.isTaken) return false;
  return !adapter.isUp || inventory.bluez.daemon == Daemon::absent || inventory.bluez.daemon == Daemon::noBus;
}

bool isPermitted(const HCIAdapter& adapter, const RadioInventory& inventory) {
  return inventory.permissions.allow(adapter.isToTakeOver());
}

std::string standingOf(const HCIAdapter& adapter, const RadioInventory& inventory) {
  if (adapter.isTaken) return "another program has it to itself; when that has ended";
  if (isFree(adapter, inventory)) return "it is free and";
  return inventory.bluez.daemon == Daemon::notPermitted ? "it is up, bluetoothd may not be asked, and"
                                                        : "it is up, bluetoothd does not show it, and";
}

RadioChoice hciChoice(const HCIAdapter& adapter, const RadioInventory& inventory) {
  std::string why = "chose " + adapter.title() + " over HCI: ";
  why.append(standingOf(adapter, inventory)).append(" this process may drive it");
  if (adapter.isBlocked) why += ", but it is blocked; 'rfkill unblock bluetooth' frees it";
  const std::string name =
      adapter.address.isAnonymous() ? std::to_string(adapter.index) : adapter.address.text();
  return {"hci:" + name, false, std::move(why)};
}

/// The first that is on, or the first.
const BlueZAdapter& bestOf(const std::vector<BlueZAdapter>& adapters) {
  const auto powered = std::ranges::find_if(adapters, &BlueZAdapter::isPowered);
  return powered == adapters.end() ? adapters.front() : *powered;
}

RadioChoice bluezChoice(const RadioInventory& inventory) {
  const BlueZAdapter& adapter = bestOf(inventory.bluez.adapters);
  std::string why = "chose " + adapter.name + " (" + adapter.address + ") through bluetoothd: ";
  const auto permitted = [&](const HCIAdapter& known) { return isPermitted(known, inventory); };
  if (inventory.adapters.empty())
    why += "the kernel shows no adapter";
  else if (std::ranges::any_of(inventory.adapters, permitted))
    why += "it uses the adapter";
  else
    why += "HCI is not permitted, though " + inventory.permissions.hint(inventory.executable);
  return {"bluez:" + adapter.address, false, why.append(kLimit)};
}

std::string whyNotHCI(const RadioInventory& inventory) {
  if (inventory.adapterError) return inventory.adapterError->text;
  if (inventory.adapters.empty()) return "none is plugged in";
  return inventory.adapters.front().title() +
         " may not be used: " + inventory.permissions.hint(inventory.executable);
}

std::string whyNotBlueZ(const BlueZInventory& bluez) {
  if (bluez.daemon == Daemon::notPermitted) return bluezRefusal(bluez.problem);
  return bluez.problem.empty() ? "it has no adapter" : bluez.problem;
}

}  // namespace

RadioChoice chooseRadio(const RadioInventory& inventory) {
  const auto find = [&](auto suits) {
    const auto found = std::ranges::find_if(inventory.adapters, [&](const HCIAdapter& adapter) {
      return isPermitted(adapter, inventory) && suits(adapter);
    });
    return found == inventory.adapters.end() ? nullptr : &*found;
  };
  if (const auto* free =
          find([&](const HCIAdapter& adapter) { return isFree(adapter, inventory) && !adapter.isBlocked; }))
    return hciChoice(*free, inventory);
  if (!inventory.bluez.adapters.empty()) return bluezChoice(inventory);
  for (const bool isTaken : {false, true}) {
    if (const auto* any = find([&](const HCIAdapter& adapter) { return adapter.isTaken == isTaken; }))
      return hciChoice(*any, inventory);
  }
  const bool isForbidden = !inventory.adapters.empty() || inventory.bluez.daemon == Daemon::notPermitted;
  return {{},
          isForbidden,
          "no radio: looked for adapters of the kernel (" + whyNotHCI(inventory) +
              ") and for bluetoothd on the system bus (" + whyNotBlueZ(inventory.bluez) + ")"};
}

}  // namespace platform
