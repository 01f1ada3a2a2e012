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

}  // namespace

CBUUID CBUUID::fromShort(uint32_t value) {
  NSUUID::Octets octets = kBaseUUID;
  for (size_t i = 0; i < kShortSize; ++i) octets[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  return CBUUID(NSUUID(octets));
}

std::optional<CBUUID> CBUUID::fromPacket(DataView octets) {
  NSUUID::Octets result{};
  if (octets.size() == result.size()) {
    std::transform(octets.rbegin(), octets.rend(), result.begin(), std::to_integer<uint8_t>);
    return CBUUID(NSUUID(result));
  }
  if (octets.size() != 2 && octets.size() != kShortSize) return std::nullopt;
  uint32_t value = 0;
  for (size_t i = octets.size(); i > 0; --i) value = value << 8 | std::to_integer<uint32_t>(octets[i - 1]);
  return fromShort(value);
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
  uint32_t value = 0;
  for (size_t i = 0; i < kShortSize; ++i) value = value << 8 | octets[i];
  return value;
}

std::string CBUUID::UUIDString() const {
  const std::optional<uint32_t> value = shortValue();
  if (!value) return uuid_.UUIDString();
  std::string text;
  for (size_t i = *value > 0xFFFF ? 0 : 2; i < kShortSize; ++i) {
    appendHex(text, uuid_.octets()[i], kUpperHexDigits);
  }
  return text;
}

}  // namespace platform
