#pragma once

#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

/// Reads the arguments and runs the command that they name.
ExitStatus runCommandLine(int argc, char** argv);

}  // namespace brenloft
