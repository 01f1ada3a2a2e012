#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "gateway/configuration/Settings.h"
#include "gateway/configuration/TomlDocument.h"

namespace brenloft {

/// The options that a command has, which its table in the settings file may hold.
struct CommandOption {
  std::string name;  ///< the long one, without hyphens in front
  bool isFlag = false;
  bool isRepeatable = false;
  std::string fallback{};  ///< what holds without it, for people; "" where nothing does
};

struct CommandVocabulary {
  std::map<std::string, std::vector<CommandOption>> commands{};  ///< by name: "scan", "log show"
  /// What is wrong with these values of an option; "" when they are right.
  std::function<std::string(const std::string& command, const OptionSetting&)> check{};
};

/// All that the text says, or all that is wrong with it in the order of its lines. Pure.
std::variant<Settings, std::vector<Complaint>> parseSettings(std::string_view text,
                                                             const CommandVocabulary& vocabulary);

}  // namespace brenloft
