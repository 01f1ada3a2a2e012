#include "platform/foundation/NSUUID.h"

#include "platform/foundation/Hex.h"

namespace platform {
namespace {

constexpr size_t kTextLength = 36;

constexpr bool isHyphenPosition(size_t i) {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

std::optional<NSUUID> NSUUID::initWithUUIDString(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  Octets octets{};
  size_t octet = 0;
  for (size_t i = 0; i < kTextLength;) {
    if (isHyphenPosition(i)) {
      if (text[i++] != '-') return std::nullopt;
      continue;
    }
    const int high = hexDigitValue(text[i]);
    const int low = hexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    octets[octet++] = static_cast<uint8_t>(high * 16 + low);
    i += 2;
  }
  return NSUUID(octets);
}

std::string NSUUID::UUIDString() const {
  std::string text(kTextLength, '-');
  size_t i = 0;
  for (const uint8_t octet : octets_) {
    if (isHyphenPosition(i)) ++i;
    writeHex(&text[i], octet, kUpperHexDigits);
    i += 2;
  }
  return text;
}

}  // namespace platform
