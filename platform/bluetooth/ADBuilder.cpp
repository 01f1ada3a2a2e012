#include "platform/bluetooth/ADBuilder.h"

#include <algorithm>
#include <array>

namespace platform {
namespace {

constexpr size_t kLongestValue = 254;

size_t widthOf(const CBUUID& uuid) {
  const std::optional<uint32_t> value = uuid.shortValue();
  if (!value) return 16;
  return *value > 0xFFFF ? 4 : 2;
}

// Least significant octet first; short UUIDs are octets 0 to 3 of the 128 bits.
void appendUUID(Data& octets, const CBUUID& uuid, size_t width) {
  const auto& all = uuid.uuid128().octets();
  const size_t end = width == 16 ? width : 4;
  for (size_t i = end; i > end - width; --i) octets.push_back(static_cast<std::byte>(all[i - 1]));
}

ADType listType(size_t width) {
  if (width == 2) return ADType::completeUUIDs16;
  return width == 4 ? ADType::completeUUIDs32 : ADType::completeUUIDs128;
}

ADType serviceDataType(size_t width) {
  if (width == 2) return ADType::serviceData16;
  return width == 4 ? ADType::serviceData32 : ADType::serviceData128;
}

}  // namespace

void ADBuilder::add(ADType type, DataView value) {
  const DataView kept = value.first(std::min(value.size(), kLongestValue));
  octets_.push_back(static_cast<std::byte>(kept.size() + 1));
  octets_.push_back(static_cast<std::byte>(type));
  octets_.insert(octets_.end(), kept.begin(), kept.end());
}

ADBuilder& ADBuilder::flags(uint8_t value) {
  const std::array octet{static_cast<std::byte>(value)};
  add(ADType::flags, octet);
  return *this;
}

ADBuilder& ADBuilder::serviceUUIDs(std::span<const CBUUID> uuids) {
  Data list;
  for (size_t i = 0; i < uuids.size();) {
    const size_t width = widthOf(uuids[i]);
    list.clear();
    while (i < uuids.size() && widthOf(uuids[i]) == width && list.size() + width <= kLongestValue) {
      appendUUID(list, uuids[i++], width);
    }
    add(listType(width), list);
  }
  return *this;
}

ADBuilder& ADBuilder::manufacturerData(DataView value) {
  add(ADType::manufacturerData, value);
  return *this;
}

ADBuilder& ADBuilder::localName(std::string_view name) {
  add(ADType::completeLocalName, viewOf(name));
  return *this;
}

ADBuilder& ADBuilder::txPowerLevel(int8_t level) {
  const std::array octet{static_cast<std::byte>(level)};
  add(ADType::txPowerLevel, octet);
  return *this;
}

ADBuilder& ADBuilder::serviceData(const CBUUID& uuid, DataView value) {
  const size_t width = widthOf(uuid);
  Data octets;
  appendUUID(octets, uuid, width);
  octets.insert(octets.end(), value.begin(), value.end());
  add(serviceDataType(width), octets);
  return *this;
}

ADBuilder& ADBuilder::advertisement(const CBAdvertisementData& data) {
  if (data.serviceUUIDs) serviceUUIDs(*data.serviceUUIDs);
  if (data.manufacturerData) manufacturerData(*data.manufacturerData);
  if (data.localName) localName(*data.localName);
  if (data.txPowerLevel) txPowerLevel(static_cast<int8_t>(*data.txPowerLevel));
  for (const auto& [uuid, value] : data.serviceData) serviceData(uuid, value);
  return *this;
}

}  // namespace platform
