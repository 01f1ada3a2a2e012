#pragma once

#include "tools/brenloft/Options.h"

namespace CLI {
class App;
}

namespace brenloft {

// What every command has that hears beacons.

void addExitTime(CLI::App& command, SearchOptions& options);
/// `--only` and `--plausible`.
void addWantedBeacons(CLI::App& command, BeaconChoice& choice);
/// How much of what is heard the history keeps.
void addHistoryBounds(CLI::App& command, HistoryOptions& history);
/// Of a command that follows the history and can hear as well: `--source`, and what only makes sense with it.
void addHearing(CLI::App& command, SearchOptions& hearing);

}  // namespace brenloft
