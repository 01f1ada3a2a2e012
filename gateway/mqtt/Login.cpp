#include "gateway/mqtt/Login.h"

#include <cerrno>
#include <fstream>
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

platform::Result<Login> readLogin(const std::filesystem::path& file) {
  if (const auto problem = secretProblem(file)) return *problem;
  std::ifstream stream(file);
  std::string user;
  std::string password;
  std::getline(stream, user);
  std::getline(stream, password);
  for (std::string* line : {&user, &password})
    if (line->ends_with('\r')) line->pop_back();
  if (user.empty())
    return Error{Error::Kind::failed, "no user in its first line; the second is the password"}.in(
        file.native());
  return Login{user, Secret(password)};
}

}  // namespace brenloft
