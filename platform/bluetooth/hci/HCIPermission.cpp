#include "platform/bluetooth/hci/HCIPermission.h"

#include <cstdlib>
#include <fstream>
#include <system_error>

namespace platform {
namespace {

constexpr unsigned long long kCapNetAdmin = 1U << 12U;  // linux/capability.h
constexpr unsigned long long kCapNetRaw = 1U << 13U;

}  // namespace

HCIPermissions HCIPermissions::ofThisProcess(const std::filesystem::path& root) {
  HCIPermissions permissions;
  std::ifstream status(root / "proc/self/status");
  for (std::string key, value; status >> key && std::getline(status, value);) {
    const auto bits = std::strtoull(value.c_str(), nullptr, 16);
    if (key == "CapEff:") {
      permissions.netRaw = (bits & kCapNetRaw) != 0;
      permissions.netAdmin = (bits & kCapNetAdmin) != 0;
    }
    const bool isBounded = key == "CapBnd:" && (~bits & (kCapNetRaw | kCapNetAdmin)) != 0;
    if (isBounded || (key == "NoNewPrivs:" && bits != 0)) permissions.mayGain = false;
  }
  return permissions;
}

std::string HCIPermissions::hint(const std::string& executable) const {
  if (!mayGain) {
    return "its sandbox keeps capabilities from it; 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' and the "
           "same 'CapabilityBoundingSet=' in its systemd unit permit it, or '--cap-add NET_RAW --cap-add "
           "NET_ADMIN' for its container";
  }
  return "\"setcap 'cap_net_raw,cap_net_admin+eip' " + executable +
         "\" permits it, or 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' in a systemd unit";
}

std::string ownExecutable(const std::filesystem::path& root) {
  std::error_code error;
  return std::filesystem::read_symlink(root / "proc/self/exe", error).string();
}

}  // namespace platform
