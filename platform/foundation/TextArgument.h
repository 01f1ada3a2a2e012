#pragma once

#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace platform {

/// A text that is handed in and may be absent: made of a text, of std::nullopt or of a null pointer. A null
/// pointer, such as getenv's, is absent as well, where a std::optional<std::string> would throw.
struct TextArgument {
  std::optional<std::string> text;

  TextArgument() = default;
  template <typename Text>
  requires(std::convertible_to<Text, std::optional<std::string>> || std::is_null_pointer_v<Text>)
      TextArgument(Text given) {  // NOLINT(google-explicit-constructor): stands for its text
    if constexpr (std::is_pointer_v<Text>) {
      if (given != nullptr) text = given;
    } else if constexpr (!std::is_null_pointer_v<Text>) {
      text = std::move(given);
    }
  }
};

}  // namespace platform
