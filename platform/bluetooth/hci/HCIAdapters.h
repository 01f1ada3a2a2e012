#pragma once

#include <string>
#include <vector>

#include "platform/bluetooth/hci/RadioAddress.h"

namespace platform {

/// A Bluetooth adapter that the kernel knows.
struct HCIAdapter {
  int index = 0;  ///< the N of hciN; may change when an adapter is plugged in again
  BluetoothAddress address;
  bool isUp = false;
  bool isBlocked = false;  ///< by rfkill, which an adapter that is up is not

  /// "hci0"
  std::string name() const { return "hci" + std::to_string(index); }
};

/// The adapters in the order of their numbers. Needs no privilege. When the kernel cannot be asked, `problem`
/// says why and the list is empty; it is empty without a problem when no adapter is plugged in.
std::vector<HCIAdapter> listHCIAdapters(std::string& problem);

/// The one that the address names; null when it is not among them.
const HCIAdapter* findHCIAdapter(const std::vector<HCIAdapter>& adapters, const HCIAdapterAddress& address);

}  // namespace platform
