#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenloft {

/// Seconds ("2.5"), or numbers with units ("1d12h", "250ms"); nothing when it is neither, or negative.
std::optional<std::chrono::microseconds> durationFromText(std::string_view text);

/// What a text that is no duration was meant to be: "10m" of "10 minutes". "" when there is no telling.
std::string meantDuration(std::string_view text);

/// With a question mark for every control character and every octet that is no UTF-8: nothing of it moves a
/// terminal's cursor or begins a line.
std::string printable(std::string_view text);

/// "1 row", "2 rows".
std::string counted(uint64_t count, std::string_view noun);

/// RFC 4180: quoted where a comma, a quote or a line end stands inside.
std::string csvField(std::string_view text);
void appendCsvField(std::string& fields, std::string_view text);

/// The first `width` characters of a UTF-8 text.
std::string fitted(std::string text, std::size_t width);

}  // namespace brenloft
