#pragma once

#include <string>

#include "platform/sources/Source.h"

namespace brenloft {

/// As `platform::openSource`, for a command: throws `Failure` with the status that belongs to the reason.
platform::Source openSource(const std::string& address, platform::SourceOptions options);

}  // namespace brenloft
