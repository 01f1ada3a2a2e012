#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <variant>

#include "gateway/configuration/SettingsParser.h"

using namespace brenloft;

// Any text is settings that hold together, or has complaints about lines that it has.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  static const CommandVocabulary vocabulary{
      .commands = {{"scan", {{"source"}, {"log", true}, {"out", false, true}}},
                   {"log show", {{"container"}}}}};
  const std::string_view text(reinterpret_cast<const char*>(octets), size);
  const auto parsed = parseSettings(text, vocabulary);
  if (const auto* complaints = std::get_if<std::vector<Complaint>>(&parsed)) {
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
    const auto isPlaced = [&](const Complaint& one) {
      return one.line >= 1 && one.line <= lines && !one.reason.empty();
    };
    if (complaints->empty() || !std::ranges::all_of(*complaints, isPlaced)) std::abort();
    return 0;
  }
  for (const AlarmRule& rule : std::get<Settings>(parsed).alarms) {
    const bool isSilence = rule.quantity == AlarmRule::Quantity::silence;
    if (rule.name.empty() || isSilence == (rule.above || rule.below) || rule.hold.count() < 0) std::abort();
  }
  return 0;
}
