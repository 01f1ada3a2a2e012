#pragma once

#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Options.h"

namespace brenloft {

// One function per command, each in a file of its own. Each runs to its end on the calling thread and may
// throw `Failure`.

ExitStatus runDecode(const DecodeOptions& options);
ExitStatus runHear(const HearOptions& options);
ExitStatus runSimulate(const SimulateOptions& options);
ExitStatus runSearch(const SearchOptions& options);
ExitStatus runLog(const LogOptions& options);
ExitStatus runTag(const TagOptions& options);
ExitStatus runBeacons(const BeaconsOptions& options);
ExitStatus runReport(const ReportOptions& options);
ExitStatus runSources(const SourcesOptions& options);
ExitStatus runConfig(const ConfigOptions& options);

}  // namespace brenloft
