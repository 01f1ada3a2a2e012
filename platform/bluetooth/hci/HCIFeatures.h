#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/foundation/Data.h"

namespace platform::hci {

/// What a controller said that it can do.
struct HCIFeatures {
  static constexpr std::size_t kCommandOctets = 64;

  /// Of the host controller interface, by the assigned numbers: 9 is 5.0. Absent when it was not told.
  std::optional<uint8_t> version;
  bool hasLE = true;  ///< believed until denied
  uint64_t leFeatures = 0;
  /// Supported_Commands (Bluetooth Core, Vol 4, Part E, 6.27); absent when the controller would not tell.
  std::optional<std::array<uint8_t, kCommandOctets>> commands;

  void setCommands(DataView octets);
  bool hasLegacyScanning() const;
  bool hasExtendedScanning() const;
  /// "Bluetooth 5.0", for people
  std::string versionText() const;
};

}  // namespace platform::hci
