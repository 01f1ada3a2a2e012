#include "tools/brenloft/BackupFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

void writeBackup(const std::string& file, const std::filesystem::path& container,
                 const std::function<platform::Result<>(const std::filesystem::path& copy)>& copy) {
  refuseContainerFile("FILE", file, container);
  const std::string partial = file + ".partial";
  const auto refuse = [&](const std::string& why) {
    ::unlink(partial.c_str());
    throw Failure(ExitStatus::failed, file + ": " + why);
  };
  std::error_code error;
  if (std::filesystem::exists(file, error))
    throw Failure(ExitStatus::failed, file + ": it exists already; name a new file");
  ::unlink(partial.c_str());
  const auto copied = copy(partial);
  if (!copied) refuse(copied.error().text);
  const int descriptor = ::open(partial.c_str(), O_RDONLY | O_CLOEXEC);
  const bool isSynced = descriptor >= 0 && ::fsync(descriptor) == 0;
  if (descriptor >= 0) ::close(descriptor);
  if (!isSynced || ::rename(partial.c_str(), file.c_str()) != 0)
    refuse(std::generic_category().message(errno));
}

}  // namespace brenloft
