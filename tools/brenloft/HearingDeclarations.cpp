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
               const std::string& type, const std::string& what, const std::string& help) {
  command
      .add_option_function<std::string>(
          name,
          [&value, parse, what, name](const std::string& text) {
            const auto parsed = parse(text);
            if (!parsed) throw CLI::ValidationError(name, fmt::format("'{}' is not a {}", text, what));
            value = *parsed;
          },
          help)
      ->type_name(type);
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
          "how long a sensor beacon may be silent before it is lost, such as 35 or 1m30s; default: auto, "
          "learned for each beacon from its gaps, but 5 for jsonl, csv, the rows of a table and the log")
      ->type_name(fmt::format("{}|auto", kDuration));
}

void addWantedBeacons(CLI::App& command, GatewayOptions& options) {
  command
      .add_option("--only", options.only,
                  "only this beacon, by name or identifier; known: all beacons of the settings file; may be "
                  "repeated")
      ->type_name(fmt::format("{}|{}", kBeacon, kKnown))
      ->allow_extra_args(false)
      ->expected(1, -1);
  addChoice(command, "--plausible", options.choice.isPlausible, kOnOff,
            "off: also what no sensor can have measured; default: on");
}

void chooseBeacons(GatewayOptions& options, const LiveSettings* settings) {
  if (settings == nullptr) return;
  options.choice.isKnown = std::erase(options.only, kKnown) != 0;
  const auto beacons = beaconsFromTexts("--only", options.only, *settings, {kKnown});
  options.choice.only = {beacons.begin(), beacons.end()};
}

void addHistoryBounds(CLI::App& command, HistoryOptions& history) {
  addDuration(command, "--history-interval", history.interval,
              "keep one routine reading of each beacon in this time, such as 1m; default: every one");
  addParsed(command, "--history-deadband", history.deadband, historyDeadbandFromText, "DEADBAND",
            "deadband such as temperature=0.2,humidity=1",
            "and, in between, each one that moved this far, such as temperature=0.2,humidity=1");
  addAge(command, "--keep", history.keep, "delete rows of the history that are older, such as 400d");
  addParsed(command, "--keep-size", history.keepSize, historySizeFromText, kSize,
            "size of 1M or more, such as 500M or 2G",
            "delete the oldest rows when the history grows beyond this size, such as 2G");
}

// What a search is told of its output has no meaning here.
void addHearing(CLI::App& command, SearchOptions& hearing) {
  auto* source = addSource(command, hearing.source, "also listen to this, and keep the history");
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
