#include "platform/foundation/Folders.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace fs = std::filesystem;

fs::path folderOf(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

void makeFolder(const fs::path& folder, FolderAccess access) {
  std::error_code unknown;
  if (folder.empty() || fs::exists(folder, unknown)) return;
  makeFolder(folder.parent_path(), access);
  ::mkdir(folder.c_str(), access == FolderAccess::ownerOnly ? 0700 : 0777);
}

std::error_code flushFolder(const fs::path& folder) {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool isFlushed = descriptor >= 0 && ::fsync(descriptor) == 0;
  const std::error_code error(isFlushed ? 0 : errno, std::generic_category());
  if (descriptor >= 0) ::close(descriptor);
  return error;
}

}  // namespace platform
