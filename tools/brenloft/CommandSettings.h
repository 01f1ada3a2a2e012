#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gateway/configuration/LiveSettings.h"
#include "tools/brenloft/ExitStatus.h"

namespace CLI {
class App;
}

namespace brenloft {

/// What the command line chose in the end: a command, and the settings that it runs under.
class ChosenCommand {
 public:
  template <class Command>
  ChosenCommand& operator=(Command command) {
    command_ = std::move(command);
    return *this;
  }
  ExitStatus operator()() const { return command_(); }

  std::shared_ptr<LiveSettings> settings{};  ///< null for commands that take none

 private:
  std::function<ExitStatus()> command_;
};

/// Declares every command to an application, which fills in `run`.
using DeclareCommands = std::function<void(CLI::App& app, ChosenCommand& run)>;

/// `--config`, for every command of the application but these.
void addConfigOption(CLI::App& app, const std::vector<std::string>& exceptions);

/// What each command would refuse at its start, were it called with nothing but what these settings say for
/// it. What it must be given as well may come from the command line.
std::vector<Complaint> refusedOptions(const std::shared_ptr<LiveSettings>& settings,
                                      const DeclareCommands& declare);

/// What the settings file may say: the options of all commands as they are declared.
CommandVocabulary vocabularyOf(const DeclareCommands& declare);

/// "log show"
std::string wholeNameOf(const CLI::App& command);

/// The settings that these arguments choose, and the arguments with the options that the file has for their
/// command and that they do not give. Throws `Failure` where the file is wrong.
struct SettledArguments {
  std::vector<std::string> arguments;
  std::shared_ptr<LiveSettings> settings{};
};
SettledArguments settle(std::vector<std::string> arguments, const DeclareCommands& declare);

}  // namespace brenloft
