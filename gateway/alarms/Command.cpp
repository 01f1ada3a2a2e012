#include "gateway/alarms/Command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brenloft {
namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

std::vector<std::string> environmentWith(const Variables& variables) {
  std::vector<std::string> environment;
  for (char** one = environ; *one != nullptr; ++one) {
    const std::string_view entry = *one;
    const auto isReplaced = [&](const auto& variable) {
      return entry.substr(0, entry.find('=')) == variable.first;
    };
    if (std::ranges::none_of(variables, isReplaced)) environment.emplace_back(entry);
  }
  for (const auto& [name, value] : variables)
    environment.push_back(std::string(name).append("=").append(value));
  return environment;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Signals as a program expects them, whatever this process blocks and ignores.
void setSignals(posix_spawnattr_t& attributes) {
  sigset_t none;
  sigemptyset(&none);
  sigset_t usual;
  sigemptyset(&usual);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) sigaddset(&usual, number);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setsigdefault(&attributes, &usual);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  ::posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
}

}  // namespace

platform::Result<int> startCommand(const std::vector<std::string>& words, const Variables& variables) {
  std::vector<std::string> arguments = words;
  std::vector<std::string> environment = environmentWith(variables);
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  setSignals(attributes);
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  // Standard output is for data.
  ::posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
  ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
  pid_t process = 0;
  const int error = ::posix_spawn(&process, arguments.front().c_str(), &files, &attributes,
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  ::posix_spawn_file_actions_destroy(&files);
  ::posix_spawnattr_destroy(&attributes);
  if (error != 0) return platform::Error{.text = std::generic_category().message(error)};
  return process;
}

std::string reapCommand(int process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0)
    if (errno != EINTR) return "its end is not known";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status)) + " ended it";
  if (WEXITSTATUS(status) != 0) return "it ended with status " + std::to_string(WEXITSTATUS(status));
  return {};
}

void killCommand(int process) {
  ::kill(-process, SIGKILL);
}

}  // namespace brenloft
