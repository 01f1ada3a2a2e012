#pragma once

#include <optional>
#include <string_view>

#include "platform/foundation/Date.h"

namespace brenloft {

/// When something was: "2026-11-21", "2026-11-21T10:00", with seconds, with a zone ("Z", "+01:00") or else in
/// local time; "15:00" of today, "yesterday 15:00"; "yesterday" and "today", which begin at midnight; "2h" or
/// "1d12h" ago; "now"; "@1795255200".
/// Nothing when it is none of these.
std::optional<platform::Date> instantFromText(std::string_view text, platform::Date now);

}  // namespace brenloft
