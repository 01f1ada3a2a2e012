#include "platform/bluetooth/CBUUID.h"

#include <algorithm>

#include "platform/foundation/Hex.h"

namespace platform {
namespace {

constexpr NSUUID::Octets kBaseUUID = {0, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0x80, 0x5F, 0x9B, 0x34, 0xFB};
constexpr size_t kShortSize = 4;
constexpr size_t kTextLength = 36;

std::optional<uint32_t> numberFromHex(std::string_view digits) {
  uint32_t value = 0;
  for (const char c : digits) {
    const int digit = hexDigitValue(c);
    if (digit < 0) return std::nullopt;
    value = value << 4 | static_cast<uint32_t>(digit);
  }
  return value;
}

template <size_t Octets>
std::string digitsOf(const uint8_t* octets) {
  std::string text(2 * Octets, '0');
  for (size_t i = 0; i < Octets; ++i) std::ranges::copy(kUpperHexPairs[octets[i]], &text[2 * i]);
  return text;
}

}  // namespace

CBUUID CBUUID::fromShort(uint32_t value) {
  NSUUID::Octets octets = kBaseUUID;
  octets[0] = static_cast<uint8_t>(value >> 24);
  octets[1] = static_cast<uint8_t>(value >> 16);
  octets[2] = static_cast<uint8_t>(value >> 8);
  octets[3] = static_cast<uint8_t>(value);
  return CBUUID(NSUUID(octets));
}

std::optional<CBUUID> CBUUID::fromPacket(DataView octets) {
  const auto octet = [&](size_t at) { return std::to_integer<uint32_t>(octets[at]); };
  NSUUID::Octets result{};
  switch (octets.size()) {
    case 2:
      return fromShort(octet(1) << 8 | octet(0));
    case kShortSize:
      return fromShort(octet(3) << 24 | octet(2) << 16 | octet(1) << 8 | octet(0));
    case result.size():
      std::transform(octets.rbegin(), octets.rend(), result.begin(), std::to_integer<uint8_t>);
      return CBUUID(NSUUID(result));
    default:
      return std::nullopt;
  }
}

std::optional<CBUUID> CBUUID::UUIDWithString(std::string_view text) {
  if (text.size() == kTextLength) {
    const std::optional<NSUUID> uuid = NSUUID::initWithUUIDString(text);
    return uuid ? std::optional(CBUUID(*uuid)) : std::nullopt;
  }
  if (text.size() != 4 && text.size() != 8) return std::nullopt;
  const std::optional<uint32_t> value = numberFromHex(text);
  return value ? std::optional(fromShort(*value)) : std::nullopt;
}

std::optional<uint32_t> CBUUID::shortValue() const {
  const NSUUID::Octets& octets = uuid_.octets();
  if (!std::equal(octets.begin() + kShortSize, octets.end(), kBaseUUID.begin() + kShortSize)) return {};
  const auto octet = [&](size_t at) { return uint32_t{octets[at]}; };
  return octet(0) << 24 | octet(1) << 16 | octet(2) << 8 | octet(3);
}

std::string CBUUID::UUIDString() const {
  const std::optional<uint32_t> value = shortValue();
  if (!value) return uuid_.UUIDString();
  const uint8_t* const octets = uuid_.octets().data();
  return *value > 0xFFFF ? digitsOf<4>(octets) : digitsOf<2>(octets + 2);
}

}  // namespace platform
