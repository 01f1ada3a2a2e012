#pragma once

#include <filesystem>
#include <string>

namespace platform {

/// What this process may do with the kernel's HCI sockets, from its capabilities.
struct HCIPermissions {
  bool netRaw = false;    ///< CAP_NET_RAW
  bool netAdmin = false;  ///< CAP_NET_ADMIN
  bool mayGain = true;    ///< capabilities of the file it runs would be given to it

  /// Whether an adapter may be taken over (the user channel) or else be shared (the raw channel).
  bool allow(bool takingOver) const { return takingOver ? netAdmin : netRaw; }
  /// How to permit HCI to the program at `executable`, as far as that can help; for people.
  std::string hint(const std::string& executable) const;
  static HCIPermissions ofThisProcess(const std::filesystem::path& root = "/");
};

/// The file that this process runs.
std::string ownExecutable(const std::filesystem::path& root = "/");

}  // namespace platform
