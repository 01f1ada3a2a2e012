#pragma once

#include <CLI/CLI.hpp>

#include "tools/brenloft/CommandSettings.h"

namespace brenloft {

/// `log` and what it can do.
void addLog(CLI::App& app, ChosenCommand& run);

}  // namespace brenloft
