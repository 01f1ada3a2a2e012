#pragma once

#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

/// `--uuid` of `scan`, for any number of services.
void addServices(CLI::App& command, SearchOptions& options);

/// What `scan` and `range` do not hear, and how much of the log stays: the options that hold a flood.
void addLimits(CLI::App& command, SearchOptions& options);

}  // namespace brenloft
