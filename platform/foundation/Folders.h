#pragma once

#include <filesystem>
#include <system_error>

#include "platform/foundation/FolderAccess.h"

namespace platform {

/// The folder that a file is in; "." for a name alone.
std::filesystem::path folderOf(const std::filesystem::path& file);

/// Makes a folder and those above it, where they are missing. One that cannot be made is not told: its first
/// use fails.
void makeFolder(const std::filesystem::path& folder, FolderAccess access);

/// A file's name is in storage only when its folder is.
std::error_code flushFolder(const std::filesystem::path& folder);

}  // namespace platform
