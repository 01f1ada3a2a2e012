#include "tools/brenloft/LogDeclarations.h"

#include <memory>

#include "tools/brenloft/Commands.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/OptionDeclarations.h"

namespace brenloft {

void addLog(CLI::App& app, ChosenCommand& run) {
  auto options = std::make_shared<LogOptions>();
  auto* log = app.add_subcommand("log", "Read and look after the sensor log")->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, LogOptions::Action action) {
    auto* command = log->add_subcommand(name, help);
    addContainer(*command, options->container);
    command->callback([&run, options, action] {
      options->action = action;
      if (action == LogOptions::Action::exportDocument)
        refuseContainerFile("--out", options->out, options->container);
      run = [options] { return runLog(*options); };
    });
    return command;
  };
  const auto addReading = [&](const char* name, const char* help, LogOptions::Action action) {
    auto* command = add(name, help, action);
    addSpan(*command, options->since, options->until);
    return command;
  };
  auto* show = addReading("show", "Print rows of the sensor log", LogOptions::Action::show);
  addFormat(*show, options->format, kTwoFormats);
  addTime(*show, options->time);
  addNumber(*show, "--last", options->last, 1, "only the newest N");
  show->add_flag("-f,--follow", options->follow, "wait for new rows and print them, too");
  addPath(*addReading("export", "Write the log as one JSON document", LogOptions::Action::exportDocument),
          "-o,--out", options->out, "the file to write, or -; default: standard output", Dash::isStream);
  addReading("count", "Print the number of rows", LogOptions::Action::count);
  auto* remove = add("delete", "Delete all rows, or the oldest", LogOptions::Action::deleteRows);
  addInstant(*remove, "--before", options->before, withInstants("only rows last heard before then"));
  remove->add_flag("-y,--yes", options->yes, "do not ask");
  add("check", "Look for damage", LogOptions::Action::check);
  addPath(
      *add("backup", "Copy the log and the tags, also while they are written", LogOptions::Action::backUp),
      "FILE", options->out, "the new file")
      ->required();
}

}  // namespace brenloft
