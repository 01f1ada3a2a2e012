#pragma once

#include <string>

#include "gateway/history/HistoryReader.h"
#include "platform/foundation/Date.h"

namespace brenloft {

/// Why a text is no instant; "" when it is one.
std::string instantProblem(const std::string& text);

/// The value of an option, as `instantFromText` reads it. Throws `Failure` where it is none.
platform::Date requireInstant(const char* option, const std::string& text, platform::Date now);
/// What `--since` and `--until` say; empty: from the beginning, to the end.
HistorySpan spanFromTexts(const std::string& since, const std::string& until, platform::Date now);

}  // namespace brenloft
