#include "platform/location/iBeaconFrame.h"

#include <algorithm>
#include <array>

namespace platform {
namespace {

constexpr std::array kPrefix = {std::byte{0x4C}, std::byte{0x00}, std::byte{0x02}, std::byte{0x15}};
constexpr std::size_t kCompanyLength = 2;
constexpr std::size_t kUUIDOffset = kPrefix.size();
constexpr std::size_t kMajorOffset = kUUIDOffset + 16;
constexpr std::size_t kMinorOffset = kMajorOffset + 2;
constexpr std::size_t kPowerOffset = kMinorOffset + 2;
constexpr std::size_t kFrameLength = kPowerOffset + 1;

uint16_t bigEndian16(DataView octets, std::size_t offset) {
  return static_cast<uint16_t>(std::to_integer<unsigned>(octets[offset]) << 8U |
                               std::to_integer<unsigned>(octets[offset + 1]));
}

void appendBigEndian16(Data& data, uint16_t value) {
  data.push_back(static_cast<std::byte>(value >> 8U));
  data.push_back(static_cast<std::byte>(value & 0xFFU));
}

}  // namespace

std::optional<iBeaconFrame> parseIBeaconFrame(DataView manufacturerData) {
  if (manufacturerData.size() < kFrameLength ||
      !std::ranges::equal(manufacturerData.first(kUUIDOffset), kPrefix))
    return std::nullopt;
  NSUUID::Octets uuid{};
  std::ranges::transform(manufacturerData.subspan(kUUIDOffset, uuid.size()), uuid.begin(),
                         [](std::byte octet) { return std::to_integer<uint8_t>(octet); });
  return iBeaconFrame{.proximityUUID = NSUUID(uuid),
                      .major = bigEndian16(manufacturerData, kMajorOffset),
                      .minor = bigEndian16(manufacturerData, kMinorOffset),
                      .measuredPower = std::to_integer<int8_t>(manufacturerData[kPowerOffset])};
}

bool holdsAppleMessages(DataView manufacturerData) {
  if (parseIBeaconFrame(manufacturerData)) return true;
  if (manufacturerData.size() < kCompanyLength ||
      !std::ranges::equal(manufacturerData.first(kCompanyLength), DataView(kPrefix).first(kCompanyLength)))
    return false;
  DataView rest = manufacturerData.subspan(kCompanyLength);
  while (rest.size() >= 2) {
    const std::size_t length = 2 + std::to_integer<std::size_t>(rest[1]);
    if (length > rest.size()) return false;
    rest = rest.subspan(length);
  }
  return rest.empty();
}

Data iBeaconManufacturerData(const iBeaconFrame& frame) {
  Data data(kPrefix.begin(), kPrefix.end());
  data.reserve(kFrameLength);
  for (const uint8_t octet : frame.proximityUUID.octets()) data.push_back(std::byte{octet});
  appendBigEndian16(data, frame.major);
  appendBigEndian16(data, frame.minor);
  data.push_back(static_cast<std::byte>(frame.measuredPower));
  return data;
}

}  // namespace platform
