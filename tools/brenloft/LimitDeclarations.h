#pragma once

#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

/// `--uuid` of `scan`, for any number of services.
void addServices(CLI::App& command, SearchOptions& options);

/// What is not heard: the options that hold a flood.
void addLimits(CLI::App& command, ReportChoice& heard);
/// How much of the log stays.
void addLogBounds(CLI::App& command, LogBounds& bounds);

}  // namespace brenloft
