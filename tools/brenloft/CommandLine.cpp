#include "tools/brenloft/CommandLine.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "gateway/Texts.h"
#include "platform/foundation/Suggestion.h"
#include "platform/simulated/BeaconWorld.h"
#include "platform/sources/Source.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/CommandSettings.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Completion.h"
#include "tools/brenloft/ConfigDeclarations.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/Departures.h"
#include "tools/brenloft/HearingDeclarations.h"
#include "tools/brenloft/HistoryCommand.h"
#include "tools/brenloft/LimitDeclarations.h"
#include "tools/brenloft/LogDeclarations.h"
#include "tools/brenloft/OptionDeclarations.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/PublishCommand.h"
#include "tools/brenloft/ServeCommand.h"

namespace brenloft {
namespace {

using Run = ChosenCommand;

const Choices<SearchFormat> kSearchFormats{
    {"table", SearchFormat::table},       {"jsonl", SearchFormat::jsonl},   {"csv", SearchFormat::csv},
    {"readings", SearchFormat::readings}, {"influx", SearchFormat::influx}, {"none", SearchFormat::none}};
const Choices<SearchFormat> kFileFormats{{"readings", SearchFormat::readings},
                                         {"influx", SearchFormat::influx}};

constexpr uint32_t kMaximumBeacons = platform::BeaconWorldOptions::kMaximumBeacons;

void addRecord(CLI::App& command, std::string& record) {
  addPath(command, "--record", record, "also write everything heard to this btsnoop file")
      ->check([](const std::string& text) {
        return text == "-" ? "standard output has the data already; name a file" : "";
      });
}

constexpr const char* kWhereToHear = "what to listen to";

// Each `add` function declares one command; `run` is what the command line chose in the end.

void addDecode(CLI::App& app, Run& run) {
  auto options = std::make_shared<DecodeOptions>();
  auto* command = app.add_subcommand("decode", "Decode sensor frames, given as hexadecimal text");
  command->add_option("HEX", options->frames, "a frame each; without any: a frame per line of standard input")
      ->type_name("");
  addFormat(*command, options->format, kAllFormats);
  command->callback([&run, options] { run = [options] { return runDecode(*options); }; });
}

void addHear(CLI::App& app, Run& run) {
  auto options = std::make_shared<HearOptions>();
  auto* command = app.add_subcommand("hear", "Print every report as the radio handed it over");
  addSource(*command, options->source, kWhereToHear)->required();
  command->add_flag("--merged", options->merged, "merge each report with its scan response or advertisement");
  addFormat(*command, options->format, kAllFormats);
  addTime(*command, options->time);
  addDuration(*command, "-t,--duration", options->duration,
              "end after this time, in seconds or such as 1h30m");
  addNumber(*command, "-n,--count", options->count, 1, "end after N reports");
  addRecord(*command, options->record);
  command->callback([&run, options] {
    refuseContainerFile("--record", options->record);
    run = [options] { return runHear(*options); };
  });
}

void addSimulate(CLI::App& app, Run& run) {
  auto options = std::make_shared<SimulateOptions>();
  auto* command = app.add_subcommand("simulate", "Write a btsnoop capture of simulated beacons");
  addPath(*command, "-o,--out", options->out, "the file to write; -: standard output", Dash::isStream)
      ->required();
  addNumber(*command, "--beacons", options->beacons, 0, "sensor beacons; default: 5", kMaximumBeacons);
  addNumber(*command, "--ibeacons", options->iBeacons, 0, "iBeacons; default: 0", kMaximumBeacons);
  addDuration(*command, "--seconds", options->duration, "how long it lasts; default: 60");
  addNumber(*command, "--seed", options->seed, 0,
            "a number to choose the values by: the same gives the same file; default: 1");
  command->callback([&run, options] {
    if (options->beacons > kMaximumBeacons - options->iBeacons)
      throw CLI::ValidationError("--beacons and --ibeacons",
                                 fmt::format("more than {} in all", kMaximumBeacons));
    refuseContainerFile("--out", options->out);
    run = [options] { return runSimulate(*options); };
  });
}

// Declared behind the other, so that it comes first where both are given.
void addLogExitTime(CLI::App& command, SearchOptions& options) {
  command
      .add_option_function<std::string>(
          "--log-exit-time",
          [&options](const std::string& text) {
            const auto value = durationFromText(text);
            if (!value || value->count() == 0)
              throw noDuration("--log-exit-time", text, "not a duration above 0");
            options.exitTime = std::chrono::duration<double>(*value).count();
          },
          "the same, for jsonl, csv, the rows of a table and the log only")
      ->type_name(kDuration);
}

SearchFormat fileFormat(const std::string& word) {
  for (const auto& [text, format] : kSearchFormats)
    if (text == word && std::ranges::find(kFileFormats, word, [](const auto& one) { return one.first; }) ==
                            kFileFormats.end())
      throw CLI::ValidationError(
          "--out", fmt::format("{} goes to standard output only, by --format; a file takes {}", word,
                               listText(wordsOf(kFileFormats))));
  return chosen("--out", word, kFileFormats);
}

// FORMAT:FILE, and FORMAT:- for standard output.
void addOut(CLI::App& command, SearchOptions& options) {
  command
      .add_option_function<std::vector<std::string>>(
          "--out",
          [&options](const std::vector<std::string>& texts) {
            options.gateway.files.clear();
            for (const std::string& text : texts) {
              const std::size_t colon = text.find(':');
              const std::string file = colon == std::string::npos ? "" : text.substr(colon + 1);
              if (file.empty())
                throw CLI::ValidationError("--out", fmt::format("'{}' is not FORMAT:FILE", text));
              const SearchFormat format = fileFormat(text.substr(0, colon));
              if (file != "-")
                options.gateway.files.push_back({format, file});
              else if (options.format && *options.format != format)
                throw CLI::ValidationError("--out", "standard output has another format already");
              else
                options.format = format;
            }
          },
          "also write " + listText(wordsOf(kFileFormats)) + " to a file; may be repeated")
      ->type_name(fmt::format("{}", fmt::join(wordsOf(kFileFormats), ":FILE|")) + ":FILE")
      ->allow_extra_args(false)
      ->expected(1, -1);
}

// The service gives one and its settings may give the other, so the last one holds.
void addVerbose(CLI::App& command, bool& verbose) {
  const auto ignore = [](int64_t) {};
  const CLI::Option* on = command.add_flag_function("-v,--verbose", ignore,
                                                    "print the library's diagnostic lines on standard error");
  const CLI::Option* off = command.add_flag_function(
      "-q,--quiet", ignore, "do not print them, as by default; the last of the two holds");
  command.parse_complete_callback([&command, &verbose, on, off] {
    for (const CLI::Option* option : command.parse_order())
      if (option == on || option == off) verbose = option == on;
  });
}

void addMetricsOptions(CLI::App& command, GatewayOptions& options) {
  addPath(command, "--metrics-file", options.metricsFile,
          "keep a file for Prometheus about each beacon and the gateway");
  command
      .add_option_function<std::string>(
          "--metrics-interval",
          [&options](const std::string& text) {
            const auto value = durationFromText(text);
            if (!value || *value < std::chrono::seconds(1))
              throw noDuration("--metrics-interval", text, "not a duration of 1 or more");
            options.metricsInterval = *value;
          },
          "with --metrics-file: how often it is written; default: 30")
      ->type_name(kDuration);
}

void addSearchOptions(CLI::App& command, SearchOptions& options) {
  addSource(command, options.source, kWhereToHear)->capture_default_str();
  command.add_flag("--log", options.log,
                   "write to the sensor log when a beacon is found, comes back, signals an emergency or is "
                   "lost, not every reading");
  command.add_flag("--history", options.gateway.keepsHistory,
                   "keep every reading in the container's history.sqlite");
  addHistoryBounds(command, options.gateway.history);
  addDuration(command, "-t,--duration", options.duration, "end after this time, in seconds or such as 1h30m");
  addNumber(command, "-n,--count", options.count, 1, "end after N events");
  addFormat(command, options.format, kSearchFormats,
            "a table on a terminal, else nothing with --out, else jsonl");
  addOut(command, options);
  addMetricsOptions(command, options.gateway);
  addWantedBeacons(command, options.gateway);
  addTime(command, options.time);
  command.add_flag("--transitions", options.transitions,
                   "tell only what begins or ends, such as a beacon that is found or lost, and no readings");
  addContainer(command, options.container);
  addRecord(command, options.record);
  addLimits(command, options.heard);
  addLogBounds(command, options.logBounds);
  addVerbose(command, options.verbose);
}

// How much is kept of what is not kept at all is a mistake; --log=false is meant.
void requireWhole(const CLI::App& command, const SearchOptions& options) {
  if (command.count("--log") == 0 && options.logBounds != LogBounds{})
    throw CLI::ValidationError("--log-max and --log-keep", "they need --log");
  if (command.count("--history") == 0 && options.gateway.history != HistoryOptions{})
    throw CLI::ValidationError("--history-interval, --history-deadband, --keep and --keep-size",
                               "they need --history");
  if (command.count("--metrics-interval") != 0 && options.gateway.metricsFile.empty())
    throw CLI::ValidationError("--metrics-interval", "it needs --metrics-file");
}

// What it writes is none of a container's files.
void requireOwnFiles(const SearchOptions& options) {
  for (const GatewayOptions::File& file : options.gateway.files)
    refuseContainerFile("--out", file.name, options.container);
  refuseContainerFile("--record", options.record, options.container);
  const std::string& metrics = options.gateway.metricsFile;
  refuseContainerFile("--metrics-file", metrics, options.container);
  std::error_code error;
  const auto status = std::filesystem::status(metrics, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    throw CLI::ValidationError("--metrics-file", metrics + " is not a regular file");
}

std::string checkProximityUUID(const std::string& text) {
  return platform::NSUUID::initWithUUIDString(text) ? "" : "'" + text + "' is not a UUID of 36 characters";
}

void setSearch(CLI::App& command, Run& run, const std::shared_ptr<SearchOptions>& options) {
  command.callback([&command, &run, options] {
    requireWhole(command, *options);
    requireOwnFiles(*options);
    options->settings = run.settings;
    chooseBeacons(options->gateway, run.settings.get());
    run = [options] { return runSearch(*options); };
  });
}

void addScan(CLI::App& app, Run& run) {
  auto options = std::make_shared<SearchOptions>();
  auto* command = app.add_subcommand("scan", "Find sensor beacons and tell their readings");
  addServices(*command, *options);
  addExitTime(*command, *options);
  addLogExitTime(*command, *options);
  addSearchOptions(*command, *options);
  setSearch(*command, run, options);
}

void addLeftAfter(CLI::App& command, std::chrono::microseconds& silence) {
  command
      .add_option_function<std::string>(
          "--left-after",
          [&silence](const std::string& text) {
            const auto value = durationFromText(text);
            if (!value || *value < Departures::kLeastSilence)
              throw noDuration("--left-after", text, "not a duration of 10 or more");
            silence = *value;
          },
          "how long an iBeacon may be silent, while others stay, before it has left; at least 10; default: "
          "30")
      ->type_name(kDuration);
}

void addRange(CLI::App& app, Run& run) {
  auto options = std::make_shared<SearchOptions>();
  options->mode = SearchOptions::Mode::iBeacons;
  auto* command = app.add_subcommand("range", "Find iBeacons of one proximity UUID");
  command->add_option("--uuid", options->uuid, "the proximity UUID")
      ->required()
      ->check(checkProximityUUID)
      ->type_name(kUUID);
  command->add_option("--major", options->major, "only iBeacons with this major, 0 to 65535")
      ->check(CLI::Range(0, 65535).description(""))
      ->type_name(kNumber);
  command->add_option("--minor", options->minor, "only iBeacons with this minor, 0 to 65535")
      ->check(CLI::Range(0, 65535).description(""))
      ->type_name(kNumber);
  command
      ->add_option(
          "--group", options->group,
          "what tells iBeacons apart: 0 the UUID, 1 also the major, 2 also the minor; default: what is "
          "given, and 2 for readings, influx, the live table and the history")
      ->check(CLI::Range(0, 2).description(""))
      ->type_name("0|1|2");
  addLeftAfter(*command, options->leftAfter);
  command->add_flag("--present-only", options->isPresentOnly,
                    "leave iBeacons that are lost or have left out of the ranging reports");
  addSearchOptions(*command, *options);
  setSearch(*command, run, options);
}

void addTag(CLI::App& app, Run& run) {
  auto options = std::make_shared<TagOptions>();
  auto* tag = app.add_subcommand("tag", "Set and read the tags of beacons")->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, TagOptions::Action action) {
    auto* command = tag->add_subcommand(name, help);
    addContainer(*command, options->container);
    command->callback([&run, options, action] {
      options->action = action;
      run = [options] { return runTag(*options); };
    });
    return command;
  };
  auto* set = add("set", "Add a tag; earlier ones of the key stay", TagOptions::Action::set);
  set->add_option("KEY", options->key, "the key to find it by")->required()->type_name("");
  addPath(*set, "--file", options->file, "the file that holds it, or -; default: standard input",
          Dash::isStream);
  add("get", "Write the oldest tag of a key, octet by octet", TagOptions::Action::get)
      ->add_option("KEY", options->key, "the key that it was set by")
      ->required()
      ->type_name("");
  addFormat(*add("list", "List all tags", TagOptions::Action::list), options->format, kTwoFormats);
  add("clear", "Delete all tags", TagOptions::Action::clear)
      ->add_flag("-y,--yes", options->yes, "do not ask");
}

void addBeacons(CLI::App& app, Run& run) {
  auto options = std::make_shared<BeaconsOptions>();
  auto* command = app.add_subcommand("beacons", "List every beacon of the history, and what is known of it");
  addContainer(*command, options->container);
  addFormat(*command, options->format, kAllFormats);
  command->callback([&run, options] {
    options->settings = run.settings;
    run = [options] { return runBeacons(*options); };
  });
}

void addReport(CLI::App& app, Run& run) {
  auto options = std::make_shared<ReportOptions>();
  auto* command = app.add_subcommand("report", "Write a page about the beacons of the history");
  addContainer(*command, options->container);
  addPath(*command, "-o,--out", options->out, "the HTML file to write; -: standard output", Dash::isStream)
      ->required();
  addSpan(*command, options->since, options->until);
  addBeaconChoice(*command, options->beacons);
  command->add_option("--title", options->title, "what stands at the page's top; default: Beacons");
  command->callback([&run, options] {
    options->settings = run.settings;
    refuseContainerFile("--out", options->out, options->container);
    if (run.settings) static_cast<void>(beaconsFromTexts("--beacon", options->beacons, *run.settings));
    run = [options] { return runReport(*options); };
  });
}

void addSources(CLI::App& app, Run& run) {
  auto options = std::make_shared<SourcesOptions>();
  auto* command = app.add_subcommand("sources", "List what this machine can hear with");
  addFormat(*command, options->format, kTwoFormats);
  command->callback([&run, options] { run = [options] { return runSources(*options); }; });
}

std::vector<CLI::App*> commandsOf(CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

Failure unknownCommand(CLI::App& app, const std::string& name) {
  std::vector<std::string> names;
  for (const CLI::App* command : commandsOf(app)) names.push_back(command->get_name());
  return {ExitStatus::usage,
          fmt::format("no such command: {}{}", name, platform::didYouMean(platform::nearest(name, names)))};
}

ExitStatus showHelp(CLI::App& app, const std::vector<std::string>& words) {
  app.clear();  // it shows the help of the command that was chosen, which is `help`
  CLI::App* command = &app;
  std::string above;
  for (const std::string& word : words) {
    const auto commands = commandsOf(*command);
    const auto next = std::ranges::find(commands, word, [](const CLI::App* one) { return one->get_name(); });
    if (next == commands.end()) throw unknownCommand(*command, word);
    above += (above.empty() ? "" : " ") + command->get_name();
    command = *next;
  }
  Output out(Output::Buffering::blocks);
  out.write(command->help(above));
  out.finish();
  return ExitStatus::done;
}

void addHelp(CLI::App& app, Run& run) {
  auto words = std::make_shared<std::vector<std::string>>();
  auto* command = app.add_subcommand("help", "Describe the tool or one of its commands");
  command->add_option("COMMAND", *words, "for example: log show")->type_name("");
  command->callback([&app, &run, words] { run = [&app, words] { return showHelp(app, *words); }; });
}

// "--at '2026-01-01 00:00Z'", where a blank has parted an option's value.
std::string quotesHint(const std::vector<std::string>& arguments, const std::vector<std::string>& extras) {
  const auto extra = std::ranges::find(arguments, extras.front());
  if (extra - arguments.begin() < 2 || !extra[-2].starts_with("--") || extra[-1].starts_with('-')) return {};
  return fmt::format("; a value with a blank needs quotes: {} '{} {}'", extra[-2], extra[-1],
                     fmt::join(extras, " "));
}

// What the arguments say beyond what is known, in their order.
Failure unexpected(CLI::App& app, const std::vector<std::string>& arguments) {
  CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().back();
  const auto extras = app.remaining(true);
  const auto isOption = [](const std::string& extra) { return extra.starts_with('-'); };
  if (!isOption(extras.front()) && !commandsOf(*command).empty())
    return unknownCommand(*command, extras.front());
  const std::string words = fmt::format("{}", fmt::join(extras, " "));
  const auto option = std::ranges::find_if(extras, isOption);
  if (option == extras.end())
    return {ExitStatus::usage, "not expected: " + words + quotesHint(arguments, extras)};
  const std::string name = option->substr(0, option->find('='));
  // What the command has is left over only where it stands before it.
  if (command->get_option_no_throw(name) != nullptr)
    return {ExitStatus::usage,
            fmt::format("{} goes after the command: brenloft {} {}", name, wholeNameOf(*command), words)};
  std::vector<std::string> names;
  for (const CLI::Option* one : command->get_options())
    for (const std::string& text : one->get_lnames()) names.push_back("--" + text);
  return {ExitStatus::usage,
          fmt::format("not expected: {}{}", words, platform::didYouMean(platform::nearest(name, names)))};
}

void declareCommands(CLI::App& app, Run& run) {
  app.description("Sensor beacons and iBeacons over Bluetooth Low Energy");
  app.name("brenloft");
  app.footer(
      "Exit status: 0 done, 1 failed, 2 wrong usage, 3 no radio, 4 not permitted, 5 the store cannot be "
      "used.");
  app.set_version_flag("-V,--version", "brenloft " BRENLOFT_VERSION);
  app.require_subcommand(1);
  for (const auto add : {addDecode, addHear, addScan, addRange, addSimulate, addLog, addHistory, addBeacons,
                         addPublish, addReport, addServe, addTag, addSources})
    add(app, run);
  addConfig(app, run, declareCommands);
  addHelp(app, run);
  addConfigOption(app, {"config", "help"});
  app.footer("Begin with 'brenloft scan --source demo'; 'brenloft help scan' describes a command.\n\n" +
             app.get_footer());
}

}  // namespace

ExitStatus runCommandLine(int argc, char** argv) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  // Asked by the shells, for people's next word: no command of theirs.
  if (!words.empty() && words.front() == "__complete")
    return runComplete({words.begin() + 1, words.end()}, declareCommands);
  auto [arguments, settings] = settle(words, declareCommands);
  CLI::App app;
  Run run;
  run.settings = settings;
  declareCommands(app, run);
  try {
    // It takes them from the back.
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error);  // --help and --version
      return ExitStatus::done;
    }
    // A misspelt command is worth more words than the one that is missing for it.
    if (!app.remaining(true).empty()) throw unexpected(app, arguments);
    throw Failure(ExitStatus::usage, error.what());
  }
  return run();
}

}  // namespace brenloft
