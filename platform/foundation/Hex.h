#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"

namespace platform {

inline constexpr std::string_view kUpperHexDigits = "0123456789ABCDEF";
inline constexpr std::string_view kLowerHexDigits = "0123456789abcdef";

/// 0 to 15, or -1 for any other character.
constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Appends the two digits of an octet.
inline void appendHex(std::string& text, uint8_t octet, std::string_view digits) {
  text += digits[octet >> 4];
  text += digits[octet & 15];
}

/// Writes the two digits of an octet, and says where they end.
inline char* writeHex(char* to, uint8_t octet, std::string_view digits) {
  *to++ = digits[octet >> 4];
  *to++ = digits[octet & 15];
  return to;
}

/// The two upper-case digits of every octet, for what writes many.
inline constexpr auto kUpperHexPairs = [] {
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t octet = 0; octet < pairs.size(); ++octet)
    pairs[octet] = {kUpperHexDigits[octet >> 4], kUpperHexDigits[octet & 15]};
  return pairs;
}();

/// Octets as lower-case hexadecimal digits without separators.
BRL_EXPORT std::string hexText(DataView octets);

/// The octets that an even number of hexadecimal digits spells; nothing when another character occurs.
BRL_EXPORT std::optional<Data> octetsFromHex(std::string_view text);

}  // namespace platform
