#include "tools/brenloft/SpanTexts.h"

#include <fmt/format.h>

#include "gateway/InstantText.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

using platform::Date;

Date requireInstant(const char* option, const std::string& text, Date now) {
  const auto date = instantFromText(text, now);
  if (!date)
    throw Failure(
        ExitStatus::usage,
        fmt::format("{}: '{}' is no time such as 15:00, 2026-11-21T15:00, 2h or yesterday", option, text));
  return *date;
}

HistorySpan spanFromTexts(const std::string& since, const std::string& until, Date now) {
  HistorySpan span;
  if (!since.empty()) span.since = requireInstant("--since", since, now);
  if (!until.empty()) span.until = requireInstant("--until", until, now);
  if (span.until < span.since) throw Failure(ExitStatus::usage, "--until is before --since");
  return span;
}

}  // namespace brenloft
