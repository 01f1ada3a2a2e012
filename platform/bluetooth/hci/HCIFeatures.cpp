#include "platform/bluetooth/hci/HCIFeatures.h"

#include <algorithm>
#include <string_view>

namespace platform::hci {
namespace {

constexpr uint64_t kLEExtendedAdvertising = 1ULL << 12U;

constexpr std::string_view kVersions[] = {"1.0b", "1.1", "1.2", "2.0", "2.1", "3.0", "4.0",
                                          "4.1",  "4.2", "5.0", "5.1", "5.2", "5.3", "5.4"};

bool hasBits(const HCIFeatures& features, std::size_t octet, uint8_t bits) {
  return !features.commands || ((*features.commands)[octet] & bits) == bits;
}

}  // namespace

void HCIFeatures::setCommands(DataView octets) {
  auto& kept = commands.emplace();
  const std::size_t count = std::min(octets.size(), kept.size());
  std::transform(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(count), kept.begin(),
                 [](std::byte octet) { return std::to_integer<uint8_t>(octet); });
}

bool HCIFeatures::hasLegacyScanning() const {
  return hasBits(*this, 26, 0x0C);
}

bool HCIFeatures::hasExtendedScanning() const {
  return (leFeatures & kLEExtendedAdvertising) != 0 && hasBits(*this, 37, 0x60);
}

std::string HCIFeatures::versionText() const {
  if (!version) return "Bluetooth of a version that it does not tell";
  if (*version < std::size(kVersions)) return "Bluetooth " + std::string(kVersions[*version]);
  return "Bluetooth after 5.4";
}

}  // namespace platform::hci
