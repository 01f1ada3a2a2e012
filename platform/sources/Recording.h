#pragma once

#include <memory>
#include <string>

#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"
#include "platform/sources/Source.h"

namespace platform {

/// The same source, which from now on also writes everything that it hears, and its radio's states, to a
/// btsnoop file; `capture:PATH` replays it. The file begins anew. It gets what was heard each second, and the
/// rest when its scan is stopped or the source is closed. A full disk ends the recording, not the source:
/// `onProblem` then gets one line, on the source's queue.
BRL_EXPORT Result<Source> recordTo(const std::string& path, Source source, LogSink onProblem = {});

}  // namespace platform
