#include "platform/foundation/Hex.h"

namespace platform {

std::string hexText(DataView octets) {
  std::string text(octets.size() * 2, '0');
  char* to = text.data();
  for (const std::byte octet : octets) to = writeHex(to, std::to_integer<uint8_t>(octet), kLowerHexDigits);
  return text;
}

std::optional<Data> octetsFromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Data octets;
  octets.reserve(text.size() / 2);
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = hexDigitValue(text[i]);
    const int low = hexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    octets.push_back(static_cast<std::byte>(high * 16 + low));
  }
  return octets;
}

}  // namespace platform
