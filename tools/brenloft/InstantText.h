#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "gateway/history/HistoryReader.h"
#include "platform/foundation/Date.h"

namespace brenloft {

/// When something was: "2026-11-21", "2026-11-21T10:00", with seconds, with a zone ("Z", "+01:00") or else in
/// local time; "15:00" of today, "yesterday 15:00"; "yesterday" and "today", which begin at midnight; "2h" or
/// "1d12h" ago; "now"; "@1795255200".
/// Nothing when it is none of these.
std::optional<platform::Date> instantFromText(std::string_view text, platform::Date now);

/// The value of an option. Throws `Failure` where it is none.
platform::Date requireInstant(const char* option, const std::string& text, platform::Date now);
/// What `--since` and `--until` say; empty: from the beginning, to the end.
HistorySpan spanFromTexts(const std::string& since, const std::string& until, platform::Date now);

}  // namespace brenloft
