#pragma once

#include <filesystem>
#include <string>

namespace platform {

/// What this process may do with the kernel's HCI sockets, from its effective capabilities.
struct HCIPermissions {
  bool netRaw = false;    ///< CAP_NET_RAW
  bool netAdmin = false;  ///< CAP_NET_ADMIN

  /// Whether an adapter may be taken over (the user channel) or else be shared (the raw channel).
  bool allow(bool takingOver) const { return takingOver ? netAdmin : netRaw; }
  static HCIPermissions ofThisProcess(const std::filesystem::path& root = "/");
};

/// The file that this process runs.
std::string ownExecutable(const std::filesystem::path& root = "/");

/// The exact ways to permit HCI, for a program at `executable`.
std::string hciPermissionHint(const std::string& executable);

}  // namespace platform
