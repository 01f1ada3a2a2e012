#include "gateway/Secret.h"

#include <cerrno>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace brenloft {

using platform::Error;

std::optional<Error> secretProblem(const std::filesystem::path& file) {
  struct stat about {};
  if (::access(file.c_str(), R_OK) != 0 || ::stat(file.c_str(), &about) != 0)
    return Error{Error::Kind::failed, std::generic_category().message(errno)}.in(file.native());
  if ((about.st_mode & (S_IRWXO | S_IWGRP)) == 0) return std::nullopt;
  return Error{Error::Kind::notPermitted, "others may read or change it; chmod 600 it"}.in(file.native());
}

}  // namespace brenloft
