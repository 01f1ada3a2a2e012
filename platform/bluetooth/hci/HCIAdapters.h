#pragma once

#include <string>
#include <vector>

#include "platform/bluetooth/hci/RadioAddress.h"
#include "platform/foundation/Error.h"

namespace platform {

/// A Bluetooth adapter that the kernel knows.
struct HCIAdapter {
  int index = 0;  ///< the N of hciN; may change when an adapter is plugged in again
  BluetoothAddress address;
  bool isUp = false;
  bool isBlocked = false;  ///< by rfkill, which an adapter that is up is not
  bool isTaken = false;    ///< a program has it to itself, over the user channel; it is then up, too

  /// "hci0"
  std::string name() const { return "hci" + std::to_string(index); }
  /// To be had by taking it over, now or when it is free, and not by sharing it.
  bool isToTakeOver() const { return !isUp || isTaken; }
  /// "hci0 (C0:00:00:00:00:01)"
  std::string title() const { return name() + " (" + address.text() + ")"; }
};

/// The adapters in the order of their numbers. Needs no privilege. Fails when the kernel cannot be asked;
/// the list is empty when no adapter is plugged in.
Result<std::vector<HCIAdapter>> listHCIAdapters();

/// The one that the address names; null when it is not among them.
const HCIAdapter* findHCIAdapter(const std::vector<HCIAdapter>& adapters, const HCIAdapterAddress& address);

}  // namespace platform
