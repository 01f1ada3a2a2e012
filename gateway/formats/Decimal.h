#pragma once

#include <cstdint>
#include <iterator>
#include <string>

#include <fmt/format.h>

namespace brenloft {

/// Appends hundredths as a decimal number: "23.64", "-0.01".
inline void appendHundredths(std::string& text, int32_t hundredths) {
  const uint32_t magnitude =
      hundredths < 0 ? 0U - static_cast<uint32_t>(hundredths) : static_cast<uint32_t>(hundredths);
  fmt::format_to(std::back_inserter(text), "{}{}.{:02}", hundredths < 0 ? "-" : "", magnitude / 100,
                 magnitude % 100);
}

inline void appendNumber(std::string& text, int64_t number) {
  const fmt::format_int digits(number);
  text.append(digits.data(), digits.size());
}

}  // namespace brenloft
