#include "platform/coredata/FileStamp.h"

#include <sys/stat.h>

namespace platform {

FileStamp FileStamp::of(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec};
}

}  // namespace platform
