#pragma once

#include <string>
#include <string_view>

#include "gateway/configuration/SettingsParser.h"

namespace brenloft {

/// A right settings file as it is in force: each value with its line, and in each of its tables what holds
/// without one, as a comment. It is a settings file itself.
std::string settingsText(std::string_view file, const CommandVocabulary& vocabulary);

}  // namespace brenloft
