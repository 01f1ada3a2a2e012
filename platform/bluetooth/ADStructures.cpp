#include "platform/bluetooth/ADStructures.h"

#include <algorithm>

namespace platform {
namespace {

std::optional<uint8_t> firstOctet(DataView value) {
  if (value.empty()) return std::nullopt;
  return std::to_integer<uint8_t>(value[0]);
}

}  // namespace

void ADStructures::clear() {
  flags.reset();
  serviceUUIDs.clear();
  localName.reset();
  txPowerLevel.reset();
  serviceData.clear();
  manufacturerData.reset();
}

bool ADStructures::read(DataView octets) {
  clear();
  while (!octets.empty()) {
    const auto length = std::to_integer<size_t>(octets[0]);
    if (length == 0) return true;
    if (length >= octets.size()) return false;
    readStructure(std::to_integer<uint8_t>(octets[1]), octets.subspan(2, length - 1));
    octets = octets.subspan(length + 1);
  }
  return true;
}

void ADStructures::readStructure(uint8_t type, DataView value) {
  switch (static_cast<ADType>(type)) {
    case ADType::flags:
      if (!flags) flags = firstOctet(value);
      break;
    case ADType::incompleteUUIDs16:
    case ADType::completeUUIDs16:
      readUUIDs(value, 2);
      break;
    case ADType::incompleteUUIDs32:
    case ADType::completeUUIDs32:
      readUUIDs(value, 4);
      break;
    case ADType::incompleteUUIDs128:
    case ADType::completeUUIDs128:
      readUUIDs(value, 16);
      break;
    case ADType::shortenedLocalName:
    case ADType::completeLocalName:
      if (!localName) localName = textOf(value);
      break;
    case ADType::txPowerLevel:
      if (!txPowerLevel && !value.empty()) txPowerLevel = static_cast<int8_t>(*firstOctet(value));
      break;
    case ADType::serviceData16:
      readServiceData(value, 2);
      break;
    case ADType::serviceData32:
      readServiceData(value, 4);
      break;
    case ADType::serviceData128:
      readServiceData(value, 16);
      break;
    case ADType::manufacturerData:
      if (!manufacturerData) manufacturerData = value;
      break;
  }
}

void ADStructures::readUUIDs(DataView value, size_t width) {
  for (; value.size() >= width; value = value.subspan(width)) {
    serviceUUIDs.push_back(*CBUUID::fromPacket(value.first(width)));
  }
}

void ADStructures::readServiceData(DataView value, size_t width) {
  if (value.size() < width) return;
  const CBUUID uuid = *CBUUID::fromPacket(value.first(width));
  const bool isKnown = std::any_of(serviceData.begin(), serviceData.end(),
                                   [&](const auto& known) { return known.first == uuid; });
  if (!isKnown) serviceData.emplace_back(uuid, value.subspan(width));
}

void ADStructures::fill(CBAdvertisementData& data) const {
  if (!data.manufacturerData && manufacturerData) data.manufacturerData = toData(*manufacturerData);
  if (!data.localName && localName) data.localName = std::string(*localName);
  if (!data.txPowerLevel && txPowerLevel) data.txPowerLevel = *txPowerLevel;
  for (const auto& [uuid, value] : serviceData) {
    if (!data.serviceData.contains(uuid)) data.serviceData.emplace(uuid, toData(value));
  }
}

}  // namespace platform
