#pragma once

#include "tools/brenloft/CommandSettings.h"

namespace brenloft {

/// Declares `config`, which knows what every command may have in the settings file.
void addConfig(CLI::App& app, ChosenCommand& run, const DeclareCommands& declare);

}  // namespace brenloft
