#include "tools/brenloft/SpanTexts.h"

#include <fmt/format.h>

#include "gateway/InstantText.h"
#include "gateway/Texts.h"
#include "platform/foundation/Suggestion.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

using platform::Date;

std::string instantProblem(const std::string& text) {
  if (instantFromText(text, Date())) return {};
  const std::string duration = text.substr(0, text.find(" ago"));
  return fmt::format("'{}' is not a time such as 15:00, 2026-11-21T15:00, 2h or yesterday{}", text,
                     platform::didYouMean(meantDuration(duration)));
}

Date requireInstant(const char* option, const std::string& text, Date now) {
  const auto date = instantFromText(text, now);
  if (!date) throw Failure(ExitStatus::usage, fmt::format("{}: {}", option, instantProblem(text)));
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
