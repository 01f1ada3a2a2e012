#pragma once

#include <memory>
#include <string>

#include "platform/foundation/Error.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSLog.h"
#include "platform/sources/Source.h"

namespace platform {

/// The same source, which from now on also writes everything that it hears, and its radio's states, to a
/// btsnoop file: `capture:PATH` then gives it again. The file begins anew. Octets reach it by the second; all
/// of them once the source is closed. A disk that is full ends the recording, not the source, and `onProblem`
/// takes one line that says so, on the source's queue.
BRL_EXPORT Result<Source> recordTo(const std::string& path, Source source, LogSink onProblem = {});

}  // namespace platform
