#pragma once

#include <filesystem>

namespace platform {

/// Who may read what is made in a folder, and the folder where that is made as well. What is there already
/// stays as it is.
enum class FolderAccess {
  byUmask,    ///< as the process's umask says; nobody else may write
  ownerOnly,  ///< its owner alone
};

/// The permissions that a new file is asked for, before the umask.
constexpr std::filesystem::perms permissionsOfNewFiles(FolderAccess access) {
  return std::filesystem::perms(access == FolderAccess::ownerOnly ? 0600 : 0644);
}

}  // namespace platform
