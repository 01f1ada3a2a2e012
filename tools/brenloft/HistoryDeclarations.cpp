#include <memory>
#include <string>

#include "gateway/history/HistoryOptions.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/CommandSettings.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/HistoryCommand.h"
#include "tools/brenloft/OptionDeclarations.h"

namespace brenloft {
namespace {

using Options = HistoryCommandOptions;

const Choices<HistoryFormat> kHistoryFormats{{"table", HistoryFormat::table},
                                             {"jsonl", HistoryFormat::jsonl},
                                             {"csv", HistoryFormat::csv},
                                             {"influx", HistoryFormat::influx}};

void addChoiceOfRows(CLI::App& command, Options& options) {
  addSpan(command, options.since, options.until);
  addBeaconChoice(command, options.beacons);
  command.add_flag("--readings", options.readingsOnly, "leave events out");
}

void addEvery(CLI::App& command, Options& options) {
  command
      .add_option_function<std::string>(
          "--every",
          [&options](const std::string& text) {
            options.every = durationFromText(text);
            if (!options.every || *options.every < std::chrono::seconds(1) ||
                *options.every % std::chrono::seconds(1) != std::chrono::microseconds(0))
              throw noDuration("--every", text, "not a duration of whole seconds");
          },
          "instead of readings: mean, minimum and maximum of each piece of time this long, such as 5m")
      ->type_name(kDuration);
}

const Choices<Quantity> kChartQuantities{{"temperature", Quantity::temperature},
                                         {"humidity", Quantity::humidity},
                                         {"battery", Quantity::battery},
                                         {"rssi", Quantity::rssi}};

void addPlot(CLI::App& command, Options& options) {
  command.add_flag("--plot", options.isPlot, "draw charts instead, as wide as the terminal");
  command
      .add_option_function<std::vector<std::string>>(
          "--quantity",
          [&options](const std::vector<std::string>& texts) {
            options.quantities.clear();
            for (const std::string& text : texts)
              options.quantities.push_back(chosen("--quantity", text, kChartQuantities));
          },
          "with --plot: what is drawn; default: temperature and humidity, else rssi; may be repeated")
      ->type_name(typeOf(kChartQuantities))
      ->allow_extra_args(false)
      ->expected(1, -1);
}

void addForms(CLI::App& command, Options& options) {
  addFormat(command, options.format, kHistoryFormats);
  addChoice(command, "--time", options.time, kTimeForms,
            "how times are written; default: local in a table, utc in jsonl, else unix");
}

void refuseBoth(const char* option, bool isGiven, const char* other, bool isOtherGiven) {
  if (isGiven && isOtherGiven)
    throw Failure(ExitStatus::usage, fmt::format("{} does not go with {}", option, other));
}

void requireFitting(const Options& options) {
  const bool hasForm = options.format != HistoryFormat::table;
  refuseBoth("--follow", options.follow, "--every", options.every.has_value());
  refuseBoth("--last", options.last.has_value(), "--every", options.every.has_value());
  refuseBoth("--plot", options.isPlot, "--follow", options.follow);
  refuseBoth("--plot", options.isPlot, "--every", options.every.has_value());
  refuseBoth("--plot", options.isPlot, "--format", hasForm);
  refuseBoth("--plot", options.isPlot, "--time", options.time.has_value());
  if (!options.quantities.empty() && !options.isPlot)
    throw Failure(ExitStatus::usage, "--quantity needs --plot");
  if (options.time == TimeForm::epoch && options.format == HistoryFormat::jsonl)
    throw Failure(ExitStatus::usage, "jsonl has times as texts: --time utc or local");
  if (options.action == Options::Action::exportRows)
    refuseContainerFile("--out", options.out, options.container);
  if (options.settings) static_cast<void>(beaconsFromTexts("--beacon", options.beacons, *options.settings));
}

}  // namespace

void addHistory(CLI::App& app, ChosenCommand& run) {
  auto options = std::make_shared<Options>();
  auto* history =
      app.add_subcommand("history", "Read and look after the kept readings")->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, Options::Action action) {
    auto* command = history->add_subcommand(name, help);
    addContainer(*command, options->container);
    command->callback([&run, options, action] {
      options->action = action;
      options->settings = run.settings;
      requireFitting(*options);
      run = [options] { return runHistory(*options); };
    });
    return command;
  };
  auto* show =
      add("show", "Print readings and events, by default those of the last hour", Options::Action::show);
  addChoiceOfRows(*show, *options);
  addEvery(*show, *options);
  addForms(*show, *options);
  addNumber(*show, "--last", options->last, 1, "only the newest N");
  addPlot(*show, *options);
  show->add_flag("-f,--follow", options->follow, "wait for new rows and print them, too");
  auto* out = add("export", "Write readings and events for other programs", Options::Action::exportRows);
  addChoiceOfRows(*out, *options);
  addEvery(*out, *options);
  addForms(*out, *options);
  addPath(*out, "-o,--out", options->out, "the file to write, or -; default: standard output",
          Dash::isStream);
  addChoiceOfRows(*add("count", "Print the number of rows", Options::Action::count), *options);
  auto* last =
      add("last", "Print the newest reading of each beacon, now or at an instant", Options::Action::last);
  addBeaconChoice(*last, options->beacons);
  addInstant(*last, "--at", options->at,
             withInstants("what was in force then, the newest reading at or before that time"));
  addForms(*last, *options);
  auto* prune = add("prune", "Delete the oldest rows", Options::Action::prune);
  addInstant(*prune, "--before", options->before, withInstants("delete rows from before then"));
  prune
      ->add_option_function<std::string>(
          "--keep-size",
          [options](const std::string& text) {
            options->keepSize = historySizeFromText(text);
            if (!options->keepSize)
              throw CLI::ValidationError("--keep-size",
                                         fmt::format("'{}' is not a size such as 500M or 2G", text));
          },
          "delete rows until the file is no larger than this, such as 2G")
      ->type_name(kSize);
  prune->add_flag("-y,--yes", options->yes, "do not ask");
  add("check", "Look for damage", Options::Action::check);
  addPath(*add("backup", "Copy the history, also while it is written", Options::Action::backUp), "FILE",
          options->out, "the new file")
      ->required();
}

}  // namespace brenloft
