#include "platform/bluetooth/hci/HCIPermission.h"

#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

namespace platform {
namespace {

constexpr unsigned kCapNetAdmin = 12;  // linux/capability.h
constexpr unsigned kCapNetRaw = 13;

}  // namespace

HCIPermissions HCIPermissions::ofThisProcess(const std::filesystem::path& root) {
  constexpr std::string_view kKey = "CapEff:";
  std::ifstream status(root / "proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kKey)) continue;
    const auto effective = std::strtoull(line.c_str() + kKey.size(), nullptr, 16);
    return {.netRaw = ((effective >> kCapNetRaw) & 1U) != 0,
            .netAdmin = ((effective >> kCapNetAdmin) & 1U) != 0};
  }
  return {};
}

std::string ownExecutable(const std::filesystem::path& root) {
  std::error_code error;
  return std::filesystem::read_symlink(root / "proc/self/exe", error).string();
}

std::string hciPermissionHint(const std::string& executable) {
  return "\"setcap 'cap_net_raw,cap_net_admin+eip' " + executable +
         "\" permits it, or 'AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN' in a systemd unit";
}

}  // namespace platform
