#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace brenloft {

/// What people do most often in a line that is no TOML, where a parser only says which letter it did not
/// expect: `name = Fridge`. With what to write instead.
std::optional<std::string> commonMistakeIn(std::string_view line,
                                           const std::function<bool(std::string_view)>& isToml);

/// The number that a text begins with, as TOML has it: "8.5" of "8,5 °C"; "" where it begins with none.
std::string leadingNumber(std::string_view text);

}  // namespace brenloft
