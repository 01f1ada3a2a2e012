#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Octets that are kept.
using Data = std::vector<std::byte>;

/// Octets that are lent for the duration of a call.
using DataView = std::span<const std::byte>;

inline Data toData(DataView octets) {
  return {octets.begin(), octets.end()};
}

/// The octets of a text, lent as long as the text lives.
inline DataView viewOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

/// The text that UTF-8 octets spell.
inline std::string_view textOf(DataView octets) {
  return {reinterpret_cast<const char*>(octets.data()), octets.size()};  // NOLINT(*-reinterpret-cast)
}

}  // namespace platform
