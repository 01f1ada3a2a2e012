#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/foundation/Export.h"

namespace platform {

class DispatchService;

/// Where diagnostic lines go. Called from any thread; one call is one line, without its line end.
using LogSink = std::function<void(std::string_view text)>;

/// Writes one diagnostic line to the sink of the installed platform.
BRL_EXPORT void NSLog(std::string_view text);

/// The native sink: `2026-01-31 12:34:56.789 program[process:thread] text` on standard error, in local time,
/// one write a line. The date is the dispatch service's.
BRL_EXPORT LogSink standardErrorLog(std::shared_ptr<const DispatchService> dispatch);

}  // namespace platform
