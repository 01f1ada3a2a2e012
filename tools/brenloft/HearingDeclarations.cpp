#include "tools/brenloft/HearingDeclarations.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "gateway/Texts.h"
#include "gateway/history/HistoryOptions.h"
#include "platform/sources/Source.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/LimitDeclarations.h"
#include "tools/brenloft/OptionDeclarations.h"

namespace brenloft {
namespace {

const std::string kKnown = "known";
const Choices<bool> kOnOff{{"on", true}, {"off", false}};

// An option whose text `parse` makes a value of, or says that it is none.
template <typename Value, typename Parse>
void addParsed(CLI::App& command, const std::string& name, Value& value, const Parse& parse,
               const std::string& what, const std::string& help) {
  command.add_option_function<std::string>(
      name,
      [&value, parse, what, name](const std::string& text) {
        const auto parsed = parse(text);
        if (!parsed) throw CLI::ValidationError(name, fmt::format("'{}' is no {}", text, what));
        value = *parsed;
      },
      help);
}

}  // namespace

CLI::Option* addSource(CLI::App& command, std::string& source, const std::string& help) {
  return command.add_option("-s,--source", source, fmt::format("{}: {}", help, platform::kSourceForms))
      ->check(platform::addressProblem)
      ->type_name(kSource);
}

void addExitTime(CLI::App& command, SearchOptions& options) {
  command
      .add_option_function<std::string>(
          "--exit-time",
          [&options](const std::string& text) {
            if (text == "auto") return;
            const auto value = durationFromText(text);
            if (!value || value->count() == 0)
              throw noDuration("--exit-time", text, "neither auto nor a duration above 0");
            options.exitTime = std::chrono::duration<double>(*value).count();
            options.gateway.choice.exitTime.given = *value;
          },
          "silence after which a sensor beacon is lost (also 1m30s); default: auto, learned for each beacon "
          "from its gaps, and 5 for jsonl, csv, the rows of a table and the log")
      ->type_name(fmt::format("{}|auto", kDuration));
}

void addWantedBeacons(CLI::App& command, GatewayOptions& options) {
  command
      .add_option("--only", options.only,
                  "only this beacon, by name or identifier, or known: those in the settings file; may be "
                  "repeated")
      ->type_name(fmt::format("{}|{}", kBeacon, kKnown))
      ->allow_extra_args(false)
      ->expected(1, -1);
  addChoice(command, "--plausible", options.choice.isPlausible, kOnOff,
            "leave out what no sensor can have measured; default: on");
}

void chooseBeacons(GatewayOptions& options, const LiveSettings* settings) {
  if (settings == nullptr) return;
  options.choice.isKnown = std::erase(options.only, kKnown) != 0;
  const auto beacons = beaconsFromTexts("--only", options.only, *settings, {kKnown});
  options.choice.only = {beacons.begin(), beacons.end()};
}

void addHistoryBounds(CLI::App& command, HistoryOptions& history) {
  addDuration(command, "--history-interval", history.interval,
              "keep one routine reading of a beacon in so long; default: every one");
  addParsed(command, "--history-deadband", history.deadband, historyDeadbandFromText,
            "deadband such as temperature=0.2,humidity=1",
            "and, in between, one that moved so far, such as temperature=0.2,humidity=1");
  addAge(command, "--keep", history.keep, "of the history, delete what is older (400d)");
  addParsed(command, "--keep-size", history.keepSize, historySizeFromText,
            "size of 1M or more, such as 500M or 2G",
            "of the history, delete the oldest beyond this size (2G)");
}

// What a search is told of its output has no meaning here.
void addHearing(CLI::App& command, SearchOptions& hearing) {
  auto* source = addSource(command, hearing.source, "also hear, and keep the history");
  const std::vector<CLI::Option*> others = command.get_options();
  addServices(command, hearing);
  addExitTime(command, hearing);
  addWantedBeacons(command, hearing.gateway);
  addLimits(command, hearing.heard);
  addHistoryBounds(command, hearing.gateway.history);
  for (CLI::Option* option : command.get_options())
    if (std::ranges::find(others, option) == others.end()) option->needs(source);
}

}  // namespace brenloft
