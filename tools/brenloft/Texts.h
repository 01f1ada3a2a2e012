#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Date.h"

namespace brenloft {

/// RFC 3339 in UTC with microseconds, for people: "2026-01-31T12:34:56.789012Z".
std::string dateText(platform::Date date);

/// Seconds ("2.5"), or numbers with units ("1h30m", "250ms"); nothing when it is neither, or negative.
std::optional<std::chrono::microseconds> durationFromText(std::string_view text);

/// Without what would move a terminal's cursor.
std::string printable(std::string_view text);

}  // namespace brenloft
