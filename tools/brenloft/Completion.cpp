#include "tools/brenloft/Completion.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "gateway/configuration/SettingsReader.h"
#include "platform/sources/SourceInventory.h"
#include "tools/brenloft/OptionDeclarations.h"
#include "tools/brenloft/Output.h"

namespace brenloft {
namespace {

std::vector<CLI::App*> commandsBelow(CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// The command line as far as it was written.
class WordsSoFar {
 public:
  WordsSoFar(CLI::App& app, const std::vector<std::string>& words) : command_(&app) {
    for (const std::string& word : words) take(word);
  }

  CLI::App& command() const { return *command_; }
  bool isHelp() const { return isHelp_; }
  const CLI::Option* waiting() const { return waiting_; }  // the option whose value comes next
  const std::string& config() const { return config_; }

 private:
  void take(const std::string& word) {
    if (waiting_ != nullptr) {
      if (waiting_->check_name("--config")) config_ = word;
      waiting_ = nullptr;
    } else if (word.starts_with("--config=")) {
      config_ = word.substr(word.find('=') + 1);
    } else if (word.starts_with('-')) {
      const CLI::Option* option = command_->get_option_no_throw(word);
      if (option != nullptr && option->get_items_expected_max() > 0) waiting_ = option;
    } else if (word == "help" && command_->get_parent() == nullptr) {
      isHelp_ = true;
    } else {
      const auto commands = commandsBelow(*command_);
      const auto next =
          std::ranges::find(commands, word, [](const CLI::App* one) { return one->get_name(); });
      if (next != commands.end()) command_ = *next;
    }
  }

  CLI::App* command_;
  bool isHelp_ = false;
  const CLI::Option* waiting_ = nullptr;
  std::string config_{};
};

// Writes what begins like the word that is to be completed.
class Offers {
 public:
  Offers(Output& out, std::string word) : out_(out), word_(std::move(word)) {}

  const std::string& word() const { return word_; }
  void add(const std::string& text, std::string help = {}) const {
    std::ranges::replace(help, '\n', ' ');
    if (text.starts_with(word_)) out_.write(fmt::format("{}\t{}\n", text, help));
  }
  void addNames(std::string_view kind, std::string_view prefix) const {
    out_.write(fmt::format("\t{}\t{}\n", kind, prefix));
  }

 private:
  Output& out_;
  std::string word_;
};

void offerOptions(const CLI::App& command, const Offers& offers) {
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) offers.add("--" + name, option->get_description());
    for (const std::string& name : option->get_snames()) offers.add("-" + name, option->get_description());
  }
}

void offerCommands(CLI::App& command, const Offers& offers) {
  for (const CLI::App* one : commandsBelow(command)) offers.add(one->get_name(), one->get_description());
}

// What this machine has, and the forms that every machine knows.
void offerSources(const Offers& offers, const std::string& prefix) {
  std::vector<std::string> forms{"auto", "demo", "demo?paced", "capture:", "bluez", "hci", "h4:"};
  for (const auto& [address, name, state, why] : platform::SourceInventory::take().sources) {
    if (address.find("FILE") != std::string::npos) continue;
    std::erase(forms, address);
    offers.add(prefix + address, fmt::format("{}, {}", name, state));
  }
  for (const std::string& form : forms) offers.add(prefix + form);
}

void offerBeacons(const Offers& offers, const std::string& prefix, const std::string& config,
                  const DeclareCommands& declare) {
  const auto outcome = SettingsReader(config.empty() ? kSettingsFile : config,
                                      SettingsReader::Absence::isAllowed, vocabularyOf(declare))
                           .read();
  if (!outcome.settings) return;
  for (const auto& [id, beacon] : outcome.settings->beacons) {
    if (!beacon.name.empty()) offers.add(prefix + beacon.name, beacon.place);
    offers.add(prefix + id.text(), beacon.name);
  }
}

// One of the alternatives of an option's type: a word as it is, or one of the kinds in OptionDeclarations.h.
void offerKind(std::string_view kind, const std::string& prefix, const std::string& config,
               const DeclareCommands& declare, const Offers& offers) {
  const std::size_t file = kind.find(kFile);
  if (kind == kSource) {
    for (const std::string form : {"capture:", "h4:"})
      if (offers.word().starts_with(prefix + form)) return offers.addNames("file", prefix + form);
    offerSources(offers, prefix);
  } else if (kind == kBeacon) {
    offerBeacons(offers, prefix, config, declare);
  } else if (kind == kFolder) {
    offers.addNames("folder", prefix);
  } else if (file != std::string_view::npos) {
    const std::string front = prefix + std::string(kind.substr(0, file));
    if (offers.word().starts_with(front))
      offers.addNames("file", front);
    else
      offers.add(front);
  } else if (std::ranges::none_of(kind, [](char c) { return c >= 'A' && c <= 'Z'; })) {
    offers.add(prefix + std::string(kind));
  }
}

void offerValues(const CLI::Option& option, const std::string& prefix, const std::string& config,
                 const DeclareCommands& declare, const Offers& offers) {
  const std::string type = option.get_type_name();
  std::string_view rest = type;
  while (!rest.empty()) {
    const std::size_t bar = rest.find('|');
    offerKind(rest.substr(0, bar), prefix, config, declare, offers);
    rest = bar == std::string_view::npos ? "" : rest.substr(bar + 1);
  }
}

// "--format=" of "--format=js".
std::optional<std::string> optionInFront(const std::string& word) {
  const std::size_t equals = word.find('=');
  if (!word.starts_with("--") || equals == std::string::npos) return std::nullopt;
  return word.substr(0, equals + 1);
}

void offer(CLI::App& app, const std::vector<std::string>& words, const DeclareCommands& declare,
           const Offers& offers) {
  const WordsSoFar so(app, words);
  CLI::App& command = so.command();
  const auto front = optionInFront(offers.word());
  if (so.isHelp()) return offerCommands(command, offers);
  if (so.waiting() != nullptr) return offerValues(*so.waiting(), "", so.config(), declare, offers);
  if (front) {
    const CLI::Option* option = command.get_option_no_throw(front->substr(0, front->size() - 1));
    if (option != nullptr) offerValues(*option, *front, so.config(), declare, offers);
    return;
  }
  if (offers.word().starts_with('-')) return offerOptions(command, offers);
  offerCommands(command, offers);
  for (const CLI::Option* option : command.get_options())
    if (option->get_positional()) offerValues(*option, "", so.config(), declare, offers);
}

}  // namespace

ExitStatus runComplete(const std::vector<std::string>& words, const DeclareCommands& declare) {
  CLI::App app;
  ChosenCommand run;
  declare(app, run);
  Output out(Output::Buffering::blocks);
  std::vector<std::string> before = words;
  const std::string word = before.empty() ? "" : before.back();
  if (!before.empty()) before.pop_back();
  try {
    offer(app, before, declare, Offers(out, word));
  } catch (const std::exception&) {
    // A message in the middle of somebody's command line would help nobody.
  }
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
