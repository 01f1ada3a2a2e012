#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "platform/bluetooth/hci/HCIPackets.h"

namespace support {

using namespace platform;
using namespace platform::hci;

/// The rules of a Bluetooth LE controller, as far as a listening host meets them (Bluetooth Core, Vol 4,
/// Part E): what it supports, scan parameters only without a scan, legacy and extended commands exclusive
/// until a reset, reports only for a scan and an event mask that let them through.
class ControllerModel {
 public:
  struct Traits {
    bool hasLE = true;
    bool hasLegacy = true;
    bool hasExtended = false;
    bool hasCodedPhy = false;
    bool answersSupportedCommands = true;
  };
  struct Scan {
    bool isExtended = false;
    bool hidesDuplicates = false;
    Data parameters;  ///< of the latest command that set them
  };

  explicit ControllerModel(Traits traits) : traits_(traits) { reset(); }

  /// The event, in H4 form, that answers a command packet; it gives `credits`.
  Data answer(DataView command, uint8_t credits = 1) {
    const uint16_t opcode = uint16At(command, 1);
    Data returned;
    const uint8_t status = execute(opcode, command.subspan(4), returned);
    returned.insert(returned.begin(), std::byte(status));
    if (status != status::kSuccess) returned.resize(1);
    return commandComplete(opcode, credits, returned);
  }
  /// As after power-up.
  void reset() {
    family_ = Family::none;
    scan_.reset();
    lets_ = false;
    letsExtended_ = false;
  }
  const std::optional<Scan>& scan() const { return scan_; }
  /// Whether the host asked to be told of advertisements of this kind.
  bool isReporting(bool extended) const {
    return scan_ && lets_ && scan_->isExtended == extended && (!extended || letsExtended_);
  }

  static Data commandComplete(uint16_t opcode, uint8_t credits, DataView returned) {
    Data packet =
        parameters({kEventPacket, event::kCommandComplete, static_cast<unsigned>(3 + returned.size()),
                    credits, opcode & 0xFFU, static_cast<unsigned>(opcode >> 8)});
    append(packet, returned);
    return packet;
  }
  /// One whole event with one legacy report: non-connectable, random address C0:00:00:00:xx:xx of `number`.
  static Data legacyReport(uint16_t number, DataView data) {
    Data content = parameters({0x02, 1, 0x03, 1, number & 0xFFU, static_cast<unsigned>(number >> 8), 0, 0, 0,
                               0xC0, static_cast<unsigned>(data.size())});
    append(content, data);
    append(content, parameters({kRssi}));
    return lePacket(content);
  }
  static Data extendedReport(uint16_t number, DataView data) {
    const auto high = static_cast<unsigned>(number >> 8);
    Data content = parameters({0x0D, 1, 0, 0, 1, number & 0xFFU, high, 0, 0, 0, 0xC0, 1, 1, 0, 0x7F, kRssi});
    content.resize(content.size() + 9);  // no periodic advertising, not directed
    append(content, parameters({static_cast<unsigned>(data.size())}));
    append(content, data);
    return lePacket(content);
  }

 private:
  enum class Family { none, legacy, extended };

  static constexpr unsigned kRssi = 0xC4;  // -60 dBm

  static void append(Data& to, DataView octets) { to.insert(to.end(), octets.begin(), octets.end()); }
  static Data lePacket(Data parameters) {
    Data packet{std::byte{kEventPacket}, std::byte{event::kLEMeta},
                static_cast<std::byte>(parameters.size())};
    append(packet, parameters);
    return packet;
  }
  static Data withBits(std::size_t size, std::initializer_list<std::pair<std::size_t, unsigned>> bits) {
    Data octets(size);
    for (const auto& [index, value] : bits) octets[index] = std::byte(value);
    return octets;
  }

  uint8_t execute(uint16_t opcode, DataView parameters, Data& returned) {
    switch (opcode) {
      case opcode::kReset:
        reset();
        return status::kSuccess;
      case opcode::kReadLocalVersion:
        returned = withBits(8, {{0, traits_.hasExtended ? 9 : 8}});
        return status::kSuccess;
      case opcode::kReadLocalSupportedCommands:
        returned =
            withBits(64, {{26, traits_.hasLegacy ? 0x0CU : 0U}, {37, traits_.hasExtended ? 0x60U : 0U}});
        return traits_.answersSupportedCommands ? status::kSuccess : status::kUnknownCommand;
      case opcode::kReadLocalSupportedFeatures:
        returned = withBits(8, {{4, traits_.hasLE ? 0x40U : 0U}});
        return status::kSuccess;
      case opcode::kLEReadLocalSupportedFeatures:
        returned =
            withBits(8, {{1, (traits_.hasExtended ? 0x10U : 0U) | (traits_.hasCodedPhy ? 0x08U : 0U)}});
        return traits_.hasLE ? status::kSuccess : status::kUnknownCommand;
      case opcode::kSetEventMask:
        lets_ = (octetAt(parameters, 7) & 0x20U) != 0;
        return status::kSuccess;
      case opcode::kLESetEventMask:
        letsExtended_ = (octetAt(parameters, 1) & 0x10U) != 0;
        return status::kSuccess;
      case opcode::kLESetScanParameters:
        return setParameters(Family::legacy, parameters);
      case opcode::kLESetScanEnable:
        return setEnable(Family::legacy, parameters);
      case opcode::kLESetExtendedScanParameters:
        return setParameters(Family::extended, parameters);
      case opcode::kLESetExtendedScanEnable:
        return setEnable(Family::extended, parameters);
      default:
        return status::kUnknownCommand;
    }
  }
  bool claim(Family family) {
    if (family_ == Family::none) family_ = family;
    return family_ == family;
  }
  uint8_t setParameters(Family family, DataView parameters) {
    if (!(family == Family::legacy ? traits_.hasLegacy : traits_.hasExtended)) return status::kUnknownCommand;
    if (scan_ || !claim(family)) return status::kCommandDisallowed;
    scanParameters_ = toData(parameters);
    return status::kSuccess;
  }
  uint8_t setEnable(Family family, DataView parameters) {
    if (!(family == Family::legacy ? traits_.hasLegacy : traits_.hasExtended)) return status::kUnknownCommand;
    if (!claim(family)) return status::kCommandDisallowed;
    const bool on = octetAt(parameters, 0) == 1;
    scan_ = on ? std::optional(Scan{family == Family::extended, octetAt(parameters, 1) != 0, scanParameters_})
               : std::nullopt;
    return status::kSuccess;
  }

  Traits traits_;
  Family family_ = Family::none;
  std::optional<Scan> scan_;
  Data scanParameters_;
  bool lets_ = false;          ///< LE Meta events through
  bool letsExtended_ = false;  ///< extended reports through
};

}  // namespace support
