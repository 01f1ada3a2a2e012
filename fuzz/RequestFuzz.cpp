#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "gateway/Texts.h"
#include "gateway/web/Request.h"

using namespace brenloft;
using namespace brenloft::web;

// Any request is one that makes sense, or has one line that says why not.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  static const platform::Date now = platform::dateWithTimeIntervalSince1970(1'795'219'200);
  static const Secret token("0123456789abcdef");
  static const Settings settings{.beacons = {{BeaconId::sensor("C0-C1-5C-00-00-01"), {.name = "Fridge"}}}};
  std::string_view text(reinterpret_cast<const char*>(octets), size);
  const std::size_t end = std::min(text.find('\n'), text.size());
  const auto target = targetOf(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  accepts(text, "gzip");
  hasTag(text, "\"a\"");
  isThisMachine(text);
  lastEventIdOf(text);
  if (isAuthorized(text, token) && text.size() < token.revealed().size()) std::abort();
  if (!target) return 0;
  if (!target->path.starts_with('/') || printable(target->path) != target->path) std::abort();
  const auto query = historyQueryOf({.target = *target, .accept = std::string(text)}, settings, now);
  if (const auto* reason = std::get_if<std::string>(&query)) {
    if (reason->empty() || printable(*reason) != *reason) std::abort();
    return 0;
  }
  const auto& asked = std::get<HistoryQuery>(query);
  if (asked.span.until <= asked.span.since || asked.span.until > now) std::abort();
  if (asked.points < 1 || asked.points > HistoryQuery::kMostPoints) std::abort();
  return 0;
}
