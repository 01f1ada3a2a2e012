#pragma once

#include "platform/foundation/Error.h"

namespace platform {

/// What the system's error number says of something that was to be opened: not there, not permitted, or else
/// that it failed.
Error::Kind kindOfErrorNumber(int number);

}  // namespace platform
