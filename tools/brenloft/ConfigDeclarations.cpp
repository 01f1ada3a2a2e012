#include "tools/brenloft/ConfigDeclarations.h"

#include <memory>

#include "tools/brenloft/Commands.h"
#include "tools/brenloft/OptionDeclarations.h"

namespace brenloft {

void addConfig(CLI::App& app, ChosenCommand& run, const DeclareCommands& declare) {
  auto options = std::make_shared<ConfigOptions>();
  auto* config = app.add_subcommand("config", "Check and show the settings file")->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, ConfigOptions::Action action) {
    auto* command = config->add_subcommand(name, help);
    command->callback([&run, options, action, declare] {
      options->action = action;
      options->vocabulary = vocabularyOf(declare);
      options->refused = [declare](const auto& settings) { return refusedOptions(settings, declare); };
      run = [options] { return runConfig(*options); };
    });
    return command;
  };
  const auto addFile = [&](CLI::App& command) {
    addPath(command, "FILE,--config", options->file, std::string("default: ") + kSettingsFile);
  };
  auto* check = add("check", "Say every line that is wrong, and why", ConfigOptions::Action::check);
  addFile(*check);
  addContainer(*check, options->container);
  addFile(
      *add("show", "Print the settings in force, and where each comes from", ConfigOptions::Action::show));
  add("keys", "List what the file can say", ConfigOptions::Action::keys);
}

}  // namespace brenloft
