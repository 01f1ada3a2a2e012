#include "tools/brenloft/CommandSettings.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace brenloft {
namespace {

constexpr const char* kConfig = "--config";

// An application of its own to try arguments on: what they set there is thrown away.
struct Trial {
  explicit Trial(const DeclareCommands& declare) { declare(app, run); }

  CLI::App app;
  ChosenCommand run;
};

std::vector<CLI::App*> subcommandsOf(CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// Each command that has none below it, with its whole name.
template <class Visit>
void eachCommand(CLI::App& app, const std::string& above, const Visit& visit) {
  for (CLI::App* command : subcommandsOf(app)) {
    const std::string name = above.empty() ? command->get_name() : above + ' ' + command->get_name();
    if (subcommandsOf(*command).empty()) visit(*command, name);
    eachCommand(*command, name, visit);
  }
}

// No settings: they have a meaning on the command line only.
bool isSetting(const std::string& option) {
  return option != "help" && option != "version" && option != "config";
}

// What holds without it, as its help says; "" where nothing does.
std::string fallbackOf(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return "false";
  if (!option.get_default_str().empty()) return option.get_default_str();
  constexpr std::string_view kBegin = "; default: ";
  const std::string& help = option.get_description();
  const auto begin = help.find(kBegin);
  if (begin == std::string::npos) return {};
  const auto from = begin + kBegin.size();
  return help.substr(from, std::min(help.find(';', from), help.size()) - from);
}

std::vector<CommandOption> optionsOf(const CLI::App& command) {
  std::vector<CommandOption> options;
  for (const CLI::Option* option : command.get_options())
    for (const std::string& name : option->get_lnames())
      if (isSetting(name))
        options.push_back({.name = name,
                           .isFlag = option->get_items_expected_max() == 0,
                           .isRepeatable = option->get_items_expected_max() > 1,
                           .fallback = fallbackOf(*option)});
  return options;
}

std::string whatIsWrong(Trial& trial, const std::string& name, const OptionSetting& setting) {
  std::string reason;
  eachCommand(trial.app, "", [&](CLI::App& command, const std::string& one) {
    if (one != name || setting.words.empty()) return;
    CLI::Option* option = command.get_option("--" + setting.option);
    option->clear();
    try {
      for (const std::string& word : setting.words) option->add_result(word);
      option->run_callback();
    } catch (const CLI::ParseError& error) {
      reason = error.what();
    }
  });
  return reason;
}

// The command that was chosen, as far as the arguments went.
CLI::App& chosen(CLI::App& app) {
  CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().back();
  return *command;
}

// The option that names the settings that a command goes by. `config` looks at a file and goes by none.
const CLI::Option* settingsOptionOf(const CLI::App& command) {
  return wholeNameOf(command).starts_with("config ") ? nullptr : command.get_option_no_throw(kConfig);
}

// After the words that name the command, so that what the caller says himself comes later.
void insert(std::vector<std::string>& arguments, CLI::App& command,
            const std::vector<OptionSetting>& settings) {
  std::vector<std::string> added;
  for (const OptionSetting& setting : settings) {
    const std::string name = "--" + setting.option;
    if (command.get_option(name)->count() != 0) continue;
    if (setting.words.empty()) added.push_back(name);
    for (const std::string& word : setting.words) added.push_back(name + '=' + word);
  }
  auto place = arguments.begin();
  for (CLI::App* one = &command; one->get_parent() != nullptr; one = one->get_parent()) ++place;
  arguments.insert(place, added.begin(), added.end());
}

// Where the option stands that a refusal names first; of a command's options one is named most often.
unsigned lineOf(const std::string& refusal, const std::vector<OptionSetting>& options) {
  unsigned line = options.front().line;
  std::size_t first = std::string::npos;
  for (const OptionSetting& option : options) {
    const std::string name = "--" + option.option;
    const std::size_t place = refusal.find(name);
    const std::size_t end = place + name.size();
    const bool isWhole = place != std::string::npos &&
                         (end == refusal.size() || (refusal[end] != '-' && std::isalpha(refusal[end]) == 0));
    if (!isWhole || place >= first) continue;
    first = place;
    line = option.line;
  }
  return line;
}

// Why the command does not start; "" when it does.
std::string refusalOf(const std::string& name, const std::vector<OptionSetting>& options,
                      const std::shared_ptr<LiveSettings>& settings, const DeclareCommands& declare) {
  Trial trial(declare);
  trial.run.settings = settings;
  CLI::App* command = &trial.app;
  std::vector<std::string> arguments;
  std::istringstream words(name);
  for (std::string word; words >> word; arguments.push_back(word)) command = command->get_subcommand(word);
  for (CLI::Option* option : command->get_options()) option->required(false);
  insert(arguments, *command, options);
  try {
    trial.app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return error.what();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return {};
}

}  // namespace

std::vector<Complaint> refusedOptions(const std::shared_ptr<LiveSettings>& settings,
                                      const DeclareCommands& declare) {
  std::vector<Complaint> complaints;
  for (const auto& [name, options] : settings->current()->options) {
    if (options.empty()) continue;
    const std::string refusal = refusalOf(name, options, settings, declare);
    if (!refusal.empty())
      complaints.push_back({lineOf(refusal, options), fmt::format("{}, for {}", refusal, name)});
  }
  std::ranges::stable_sort(complaints, {}, &Complaint::line);
  return complaints;
}

std::string wholeNameOf(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  const bool isTop = parent == nullptr || parent->get_parent() == nullptr;
  return isTop ? command.get_name() : wholeNameOf(*parent) + ' ' + command.get_name();
}

void addConfigOption(CLI::App& app, const std::vector<std::string>& exceptions) {
  const std::string help = fmt::format("the settings file; default: {}", kSettingsFile);
  eachCommand(app, "", [&](CLI::App& command, const std::string& name) {
    if (std::ranges::find(exceptions, name.substr(0, name.find(' '))) != exceptions.end()) return;
    command
        .add_option_function<std::string>(
            kConfig,
            [](const std::string& file) {
              if (file.empty()) throw CLI::ValidationError(kConfig, "the name is empty");
            },
            help)
        ->type_name("FILE");
  });
}

CommandVocabulary vocabularyOf(const DeclareCommands& declare) {
  const auto trial = std::make_shared<Trial>(declare);
  CommandVocabulary vocabulary;
  eachCommand(trial->app, "", [&](CLI::App& command, const std::string& name) {
    if (settingsOptionOf(command)) vocabulary.commands[name] = optionsOf(command);
  });
  vocabulary.check = [trial](const std::string& command, const OptionSetting& setting) {
    return whatIsWrong(*trial, command, setting);
  };
  return vocabulary;
}

SettledArguments settle(std::vector<std::string> arguments, const DeclareCommands& declare) {
  Trial trial(declare);
  try {
    // It takes them from the back.
    trial.app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    // What is missing may be in the file, and what is wrong is told when it counts. Help needs no file.
    if (error.get_exit_code() == 0) return {std::move(arguments)};
  } catch (const Failure&) {
    // The same.
  }
  CLI::App& command = chosen(trial.app);
  const CLI::Option* config = settingsOptionOf(command);
  if (config == nullptr) return {std::move(arguments)};

  const bool isGiven = config->count() != 0;
  const SettingsReader reader(isGiven ? config->as<std::string>() : kSettingsFile,
                              isGiven ? SettingsReader::Absence::isWrong : SettingsReader::Absence::isAllowed,
                              vocabularyOf(declare));
  const auto outcome = reader.read();
  if (!outcome.settings) {
    const std::size_t others = outcome.complaints.size() - 1;
    const std::string more =
        others == 0 ? "" : fmt::format(" (and {} more; see 'brenloft config check')", others);
    throw Failure(ExitStatus::usage, outcome.complaints.front() + more);
  }
  const auto options = outcome.settings->options.find(wholeNameOf(command));
  if (options != outcome.settings->options.end()) insert(arguments, command, options->second);
  return {std::move(arguments), std::make_shared<LiveSettings>(reader, outcome.settings)};
}

}  // namespace brenloft
