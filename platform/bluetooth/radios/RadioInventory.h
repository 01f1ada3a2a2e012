#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluetooth/bluez/BlueZSource.h"
#include "platform/bluetooth/hci/HCIAdapters.h"
#include "platform/bluetooth/hci/HCIPermission.h"

namespace platform {

/// Where the inventory looks; the defaults are this machine.
struct RadioProbe {
  std::filesystem::path root = "/";  ///< holds proc/self/status, proc/self/exe, sys/class/rfkill and dev
  std::function<Result<std::vector<HCIAdapter>>()> listAdapters = listHCIAdapters;
  std::function<BlueZInventory()> listBlueZ = [] { return listBlueZAdapters(); };
};

/// One way to hear that this machine offers, or would.
struct RadioCandidate {
  enum class State {
    usable,
    absent,        ///< what it needs is not there or not running
    blocked,       ///< by rfkill
    off,           ///< switched off
    taken,         ///< another program has it to itself
    notPermitted,  ///< this process may not
  };

  std::string address;  ///< what to give as source: "bluez:hci0", "hci:0", "h4:/dev/ttyACM0"
  std::string name;     ///< "hci0 (C0:00:00:00:00:01)"
  State state = State::usable;
  std::string why;  ///< one line for people: how it hears, or what to do to make it usable
};

std::string_view textOf(RadioCandidate::State state);

/// What a machine offers, found at one moment.
struct RadioInventory {
  HCIPermissions permissions;
  std::vector<HCIAdapter> adapters;
  std::optional<Error> adapterError;  ///< why the kernel could not be asked
  BlueZInventory bluez;
  std::string executable;  ///< of this process, for the commands in texts
  std::vector<RadioCandidate> candidates;

  static RadioInventory take(const RadioProbe& probe = {});
};

/// What `auto` means on a machine.
struct RadioChoice {
  /// "hci:C0:…", "bluez:C0:…"; empty when there is nothing to choose. An adapter is named by its own address,
  /// so that no other one is heard when it was unplugged; by its number where it has none.
  std::string address;
  bool isForbidden = false;  ///< there is something, but this process may not
  std::string why;           ///< one line for people
};

/// HCI where it is permitted and the adapter is free, bluetoothd otherwise.
RadioChoice chooseRadio(const RadioInventory& inventory);

}  // namespace platform
