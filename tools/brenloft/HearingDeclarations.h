#pragma once

#include "tools/brenloft/Options.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brenloft {

// What every command has that hears beacons.

void addExitTime(CLI::App& command, SearchOptions& options);
CLI::Option* addSource(CLI::App& command, std::string& source, const std::string& help);
/// `--only` and `--plausible`.
void addWantedBeacons(CLI::App& command, GatewayOptions& options);
/// Looks up what `--only` says, once all is parsed. Without settings it cannot be known yet.
void chooseBeacons(GatewayOptions& options, const LiveSettings* settings);
/// How much of what is heard the history keeps.
void addHistoryBounds(CLI::App& command, HistoryOptions& history);
/// Of a command that follows the history and can hear as well: `--source`, and what only makes sense with it.
void addHearing(CLI::App& command, SearchOptions& hearing);

}  // namespace brenloft
