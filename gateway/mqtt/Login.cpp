#include "gateway/mqtt/Login.h"

#include <fstream>

namespace brenloft {

using platform::Error;

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
