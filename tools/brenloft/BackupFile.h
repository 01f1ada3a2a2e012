#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/foundation/Error.h"

namespace brenloft {

/// Writes a copy of a database of the container to a file that is not there yet, whole or not at all. Throws
/// `Failure` with `FILE: reason`.
void writeBackup(const std::string& file, const std::filesystem::path& container,
                 const std::function<platform::Result<>(const std::filesystem::path& copy)>& copy);

}  // namespace brenloft
