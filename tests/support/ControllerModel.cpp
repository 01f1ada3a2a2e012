#include "tests/support/ControllerModel.h"

#include "platform/bluetooth/hci/HCIPackets.h"

namespace support {
namespace {

using namespace platform;
using namespace platform::hci;

constexpr unsigned kRssi = 0xC4;  // -60 dBm

void append(Data& to, DataView octets) {
  to.insert(to.end(), octets.begin(), octets.end());
}

Data lePacket(Data parameters) {
  Data packet{std::byte{kEventPacket}, std::byte{event::kLEMeta}, static_cast<std::byte>(parameters.size())};
  append(packet, parameters);
  return packet;
}

Data withBits(std::size_t size, std::initializer_list<std::pair<std::size_t, unsigned>> bits) {
  Data octets(size);
  for (const auto& [index, value] : bits) octets[index] = std::byte(value);
  return octets;
}

}  // namespace

void ControllerModel::reset() {
  family_ = Family::none;
  scan_.reset();
  lets_ = false;
  letsExtended_ = false;
}

bool ControllerModel::isReporting(bool extended) const {
  return scan_ && lets_ && scan_->isExtended == extended && (!extended || letsExtended_);
}

Data ControllerModel::answer(DataView command, uint8_t credits) {
  const uint16_t opcode = uint16At(command, 1);
  Data returned;
  const uint8_t status = execute(opcode, command.subspan(4), returned);
  returned.insert(returned.begin(), std::byte(status));
  if (status != status::kSuccess) returned.resize(1);
  return commandComplete(opcode, credits, returned);
}

uint8_t ControllerModel::execute(uint16_t opcode, DataView parameters, Data& returned) {
  switch (opcode) {
    case opcode::kReset:
      reset();
      return status::kSuccess;
    case opcode::kReadLocalVersion:
      returned = withBits(8, {{0, traits_.hasExtended ? 9 : 8}});
      return status::kSuccess;
    case opcode::kReadLocalSupportedCommands:
      returned = withBits(64, {{26, traits_.hasLegacy ? 0x0CU : 0U}, {37, traits_.hasExtended ? 0x60U : 0U}});
      return traits_.answersSupportedCommands ? status::kSuccess : status::kUnknownCommand;
    case opcode::kReadLocalSupportedFeatures:
      returned = withBits(8, {{4, traits_.hasLE ? 0x40U : 0U}});
      return status::kSuccess;
    case opcode::kLEReadLocalSupportedFeatures:
      returned = withBits(8, {{1, (traits_.hasExtended ? 0x10U : 0U) | (traits_.hasCodedPhy ? 0x08U : 0U)}});
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

bool ControllerModel::claim(Family family) {
  if (family_ == Family::none) family_ = family;
  return family_ == family;
}

uint8_t ControllerModel::setParameters(Family family, DataView parameters) {
  if (!(family == Family::legacy ? traits_.hasLegacy : traits_.hasExtended)) return status::kUnknownCommand;
  if (scan_ || !claim(family)) return status::kCommandDisallowed;
  scanParameters_ = toData(parameters);
  return status::kSuccess;
}

uint8_t ControllerModel::setEnable(Family family, DataView parameters) {
  if (!(family == Family::legacy ? traits_.hasLegacy : traits_.hasExtended)) return status::kUnknownCommand;
  if (!claim(family)) return status::kCommandDisallowed;
  const bool on = octetAt(parameters, 0) == 1;
  scan_ = on ? std::optional(Scan{family == Family::extended, octetAt(parameters, 1) != 0, scanParameters_})
             : std::nullopt;
  return status::kSuccess;
}

Data ControllerModel::commandComplete(uint16_t opcode, uint8_t credits, DataView returned) {
  Data packet = parameters({kEventPacket, event::kCommandComplete, static_cast<unsigned>(3 + returned.size()),
                            credits, opcode & 0xFFU, static_cast<unsigned>(opcode >> 8)});
  append(packet, returned);
  return packet;
}

Data ControllerModel::legacyReport(uint16_t number, DataView data) {
  Data content = parameters({0x02, 1, 0x03, 1, number & 0xFFU, static_cast<unsigned>(number >> 8), 0, 0, 0,
                             0xC0, static_cast<unsigned>(data.size())});
  append(content, data);
  append(content, parameters({kRssi}));
  return lePacket(content);
}

Data ControllerModel::extendedReport(uint16_t number, DataView data) {
  const auto high = static_cast<unsigned>(number >> 8);
  Data content = parameters({0x0D, 1, 0, 0, 1, number & 0xFFU, high, 0, 0, 0, 0xC0, 1, 1, 0, 0x7F, kRssi});
  content.resize(content.size() + 9);  // no periodic advertising, not directed
  append(content, parameters({static_cast<unsigned>(data.size())}));
  append(content, data);
  return lePacket(content);
}

}  // namespace support
