#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/Error.h"

namespace brenloft {

/// Starts a program with its arguments and these variables beside the process's own, without a shell, and
/// returns its process id. It reads nothing, writes to standard error, has no other open file, and is the
/// leader of a process group, so that it can be ended with all that it started.
platform::Result<int> startCommand(const std::vector<std::string>& words,
                                   const std::vector<std::pair<std::string, std::string>>& variables);

/// Reaps an ended child. "" for a success, else how it ended: "it ended with status 3".
std::string reapCommand(int process);

void killCommand(int process);

}  // namespace brenloft
