#include "platform/foundation/UTF8.h"

namespace platform {

std::size_t characterLength(std::string_view text) {
  const auto octet = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  if (text.empty()) return 0;
  const unsigned first = octet(0);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  for (std::size_t i = 1; i < length; ++i)
    if ((octet(i) & 0xC0) != 0x80) return 0;
  // What has a shorter form, surrogates, and what is beyond U+10FFFF.
  const unsigned second = octet(1);
  const bool isForbidden = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                           (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return isForbidden ? 0 : length;
}

}  // namespace platform
