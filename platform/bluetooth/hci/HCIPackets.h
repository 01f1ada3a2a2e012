#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "platform/foundation/Data.h"

// What this driver needs of the host controller interface (Bluetooth Core, Vol 4, Part E). All numbers on the
// wire are little-endian.

namespace platform::hci {

inline constexpr uint8_t kCommandPacket = 0x01;
inline constexpr uint8_t kAclPacket = 0x02;
inline constexpr uint8_t kScoPacket = 0x03;
inline constexpr uint8_t kEventPacket = 0x04;
inline constexpr uint8_t kIsoPacket = 0x05;

namespace event {
inline constexpr uint8_t kCommandComplete = 0x0E;
inline constexpr uint8_t kCommandStatus = 0x0F;
inline constexpr uint8_t kHardwareError = 0x10;
inline constexpr uint8_t kLEMeta = 0x3E;
inline constexpr uint8_t kVendor = 0xFF;
}  // namespace event

namespace opcode {
inline constexpr uint16_t kNone = 0x0000;
inline constexpr uint16_t kSetEventMask = 0x0C01;
inline constexpr uint16_t kReset = 0x0C03;
inline constexpr uint16_t kReadLocalVersion = 0x1001;
inline constexpr uint16_t kReadLocalSupportedCommands = 0x1002;
inline constexpr uint16_t kReadLocalSupportedFeatures = 0x1003;
inline constexpr uint16_t kLESetEventMask = 0x2001;
inline constexpr uint16_t kLEReadLocalSupportedFeatures = 0x2003;
inline constexpr uint16_t kLESetScanParameters = 0x200B;
inline constexpr uint16_t kLESetScanEnable = 0x200C;
inline constexpr uint16_t kLESetExtendedScanParameters = 0x2041;
inline constexpr uint16_t kLESetExtendedScanEnable = 0x2042;
}  // namespace opcode

namespace status {
inline constexpr uint8_t kSuccess = 0x00;
inline constexpr uint8_t kUnknownCommand = 0x01;
inline constexpr uint8_t kCommandDisallowed = 0x0C;
}  // namespace status

constexpr uint8_t octetAt(DataView octets, std::size_t index) {
  return std::to_integer<uint8_t>(octets[index]);
}
constexpr uint16_t uint16At(DataView octets, std::size_t index) {
  return static_cast<uint16_t>(octetAt(octets, index) | octetAt(octets, index + 1) << 8);
}
uint64_t uint64At(DataView octets, std::size_t index);

/// Octets of a packet up to and with its length field; nothing when no such type exists.
constexpr std::optional<std::size_t> headerSize(uint8_t packetType) {
  switch (packetType) {
    case kEventPacket:
      return 3;
    case kCommandPacket:
    case kScoPacket:
      return 4;
    case kAclPacket:
    case kIsoPacket:
      return 5;
    default:
      return std::nullopt;
  }
}

/// Octets of the whole packet at the start, judged by its type and header alone; nothing when no such type
/// exists or the header has not all come.
std::optional<std::size_t> packetSize(DataView octets);

/// Whether a listening host can get an event of this code and parameter length with this first parameter.
bool isPlausibleEvent(uint8_t code, uint8_t length, uint8_t firstParameter);

/// A whole command packet in H4 form.
Data commandPacket(uint16_t opcode, DataView parameters);
/// Parameters from octets.
Data parameters(std::initializer_list<unsigned> octets);

/// An answer of the controller: Command Complete (7.7.14) or Command Status (7.7.15).
struct CommandAnswer {
  uint16_t opcode = opcode::kNone;
  uint8_t credits = 0;  ///< Num_HCI_Command_Packets
  bool isComplete = false;
  uint8_t status = status::kSuccess;
  DataView returned;  ///< return parameters after the status

  /// From an event packet of one of the two codes; nothing when it is too short.
  static std::optional<CommandAnswer> read(DataView packet);
};

/// "status 0x0C (Command Disallowed)"
std::string textOfStatus(uint8_t status);
/// "LE Set Scan Enable", or the opcode in hexadecimal.
std::string textOfOpcode(uint16_t opcode);

}  // namespace platform::hci
