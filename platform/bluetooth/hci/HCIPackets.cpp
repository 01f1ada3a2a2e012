#include "platform/bluetooth/hci/HCIPackets.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "platform/foundation/Hex.h"

namespace platform::hci {
namespace {

constexpr std::pair<uint16_t, std::string_view> kCommandNames[] = {
    {opcode::kSetEventMask, "Set Event Mask"},
    {opcode::kReset, "Reset"},
    {opcode::kReadLocalVersion, "Read Local Version Information"},
    {opcode::kReadLocalSupportedCommands, "Read Local Supported Commands"},
    {opcode::kReadLocalSupportedFeatures, "Read Local Supported Features"},
    {opcode::kLESetEventMask, "LE Set Event Mask"},
    {opcode::kLEReadLocalSupportedFeatures, "LE Read Local Supported Features"},
    {opcode::kLESetScanParameters, "LE Set Scan Parameters"},
    {opcode::kLESetScanEnable, "LE Set Scan Enable"},
    {opcode::kLESetExtendedScanParameters, "LE Set Extended Scan Parameters"},
    {opcode::kLESetExtendedScanEnable, "LE Set Extended Scan Enable"},
};

constexpr std::pair<uint8_t, std::string_view> kStatusNames[] = {
    {0x01, "Unknown HCI Command"},
    {0x03, "Hardware Failure"},
    {0x07, "Memory Capacity Exceeded"},
    {0x0C, "Command Disallowed"},
    {0x11, "Unsupported Feature or Parameter Value"},
    {0x12, "Invalid HCI Command Parameters"},
    {0x1F, "Unspecified Error"},
};

std::string hexNumber(unsigned value, int digits) {
  std::string text = "0x";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text += kUpperHexDigits[(value >> shift) & 15U];
  return text;
}

}  // namespace

std::optional<std::size_t> packetSize(DataView octets) {
  const auto header = octets.empty() ? std::nullopt : headerSize(octetAt(octets, 0));
  if (!header || octets.size() < *header) return std::nullopt;
  switch (octetAt(octets, 0)) {
    case kAclPacket:
      return *header + uint16At(octets, *header - 2);
    case kIsoPacket:
      return *header + (uint16At(octets, *header - 2) & 0x3FFFU);  // the two highest bits are no length
    default:
      return *header + octetAt(octets, *header - 1);
  }
}

uint64_t uint64At(DataView octets, std::size_t index) {
  uint64_t value = 0;
  for (std::size_t i = 8; i-- > 0;) value = value << 8 | octetAt(octets, index + i);
  return value;
}

bool isPlausibleEvent(uint8_t code, uint8_t length, uint8_t firstParameter) {
  switch (code) {
    case event::kCommandComplete:
      return length >= 3;
    case event::kCommandStatus:
      return length == 4;
    case event::kHardwareError:
      return length == 1;
    case event::kLEMeta:
      return length >= 2 && firstParameter >= 0x01 && firstParameter <= 0x3F;
    default:
      return false;
  }
}

Data commandPacket(uint16_t opcode, DataView parameters) {
  constexpr size_t kHeader = 4;
  Data packet(kHeader + parameters.size());
  packet[0] = std::byte{kCommandPacket};
  packet[1] = std::byte(opcode & 0xFF);
  packet[2] = std::byte(opcode >> 8);
  packet[3] = static_cast<std::byte>(parameters.size());
  std::copy(parameters.begin(), parameters.end(), packet.begin() + kHeader);
  return packet;
}

Data parameters(std::initializer_list<unsigned> octets) {
  Data data;
  data.reserve(octets.size());
  for (const unsigned octet : octets) data.push_back(static_cast<std::byte>(octet));
  return data;
}

std::optional<CommandAnswer> CommandAnswer::read(DataView packet) {
  const DataView content = packet.subspan(3);
  CommandAnswer answer;
  if (octetAt(packet, 1) == event::kCommandStatus) {
    if (content.size() < 4) return std::nullopt;
    answer.status = octetAt(content, 0);
    answer.credits = octetAt(content, 1);
    answer.opcode = uint16At(content, 2);
    return answer;
  }
  if (content.size() < 3) return std::nullopt;
  answer.isComplete = true;
  answer.credits = octetAt(content, 0);
  answer.opcode = uint16At(content, 1);
  if (content.size() == 3) return answer.opcode == opcode::kNone ? std::optional(answer) : std::nullopt;
  answer.status = octetAt(content, 3);
  answer.returned = content.subspan(4);
  return answer;
}

std::string textOfStatus(uint8_t status) {
  std::string text = "status " + hexNumber(status, 2);
  for (const auto& [value, name] : kStatusNames) {
    if (value == status) text.append(" (").append(name).append(")");
  }
  return text;
}

std::string textOfOpcode(uint16_t opcode) {
  for (const auto& [value, name] : kCommandNames) {
    if (value == opcode) return std::string(name);
  }
  return "command " + hexNumber(opcode, 4);
}

}  // namespace platform::hci
