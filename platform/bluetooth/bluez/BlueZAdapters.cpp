#include "platform/bluetooth/bluez/BlueZAdapters.h"

#include <algorithm>

#include "platform/bluetooth/Rfkill.h"

namespace platform::bluez {

void BlueZAdapters::update(const std::string& path, const AdapterProperties& change) {
  Adapter& adapter = adapters_[path];
  if (change.address) adapter.address = *change.address;
  if (change.powered) adapter.isPowered = *change.powered;
  if (change.discovering) adapter.isDiscovering = *change.discovering;
  if (change.powerState) adapter.isBlocked = *change.powerState == "off-blocked";
}

std::string BlueZAdapters::choose(const std::string& current) const {
  if (!wanted_.empty()) {
    const auto address = BluetoothAddress::fromText(wanted_);
    const auto found = std::ranges::find_if(adapters_, [&](const auto& entry) {
      return address ? entry.second.address == address->text() : nameOf(entry.first) == wanted_;
    });
    return found == adapters_.end() ? std::string() : found->first;
  }
  const Adapter* known = find(current);
  if (known != nullptr && known->isPowered) return current;
  const auto powered =
      std::ranges::find_if(adapters_, [](const auto& entry) { return entry.second.isPowered; });
  if (powered != adapters_.end()) return powered->first;
  if (known != nullptr) return current;
  return adapters_.empty() ? std::string() : adapters_.begin()->first;
}

const BlueZAdapters::Adapter* BlueZAdapters::find(const std::string& path) const {
  const auto found = adapters_.find(path);
  return found == adapters_.end() ? nullptr : &found->second;
}

RadioState BlueZAdapters::stateOf(const std::string& path) const {
  const Adapter* adapter = find(path);
  if (adapter == nullptr) {
    return {CBManagerState::unsupported, wanted_.empty()
                                             ? "bluetoothd has no adapter"
                                             : "bluetoothd has no adapter " + wanted_ + "; waiting for it"};
  }
  const std::string name = nameOf(path);
  if (adapter->isPowered)
    return {CBManagerState::poweredOn, name + " (" + adapter->address + ") through bluetoothd"};
  // Few daemons tell of the block themselves.
  std::string_view block = rfkillBlockOf(name, root_);
  if (block.empty() && adapter->isBlocked) block = kBlockedBySoftware;
  if (!block.empty()) return {CBManagerState::poweredOff, (name + " is ").append(block)};
  return {CBManagerState::poweredOff, name + " is switched off; 'bluetoothctl power on' switches it on"};
}

std::vector<BlueZAdapter> BlueZAdapters::list() const {
  std::vector<BlueZAdapter> result;
  for (const auto& [path, adapter] : adapters_)
    result.push_back({nameOf(path), adapter.address, adapter.isPowered, adapter.isBlocked});
  return result;
}

std::string BlueZAdapters::nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace platform::bluez
