#include "tools/brenloft/Store.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "platform/NativePlatform.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"

namespace brenloft {

namespace {

iovec pieceOf(const char* text) {
  // writev does not change what it writes. NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
  return {const_cast<char*>(text), std::strlen(text)};
}

std::function<void()>& lastActs() {
  static auto& acts = *new std::function<void()>;
  return acts;
}

std::vector<std::string>& settingsProblems() {
  static auto& problems = *new std::vector<std::string>;
  return problems;
}

// With nothing but what a signal handler may call. Two threads may come here: the first ends the process.
void endWithProblem(int) {
  static std::atomic_flag isTold;
  while (isTold.test_and_set()) ::pause();
  const char* problem = BRLCoreDataManager::Class::fatalProblem();
  Output::restoreTerminal();
  const std::array<iovec, 3> line{pieceOf("brenloft: "), pieceOf(problem), pieceOf("\n")};
  if (::writev(STDERR_FILENO, line.data(), static_cast<int>(line.size())) < 0) {
    // Nobody is there to be told.
  }
  ::_exit(static_cast<int>(ExitStatus::storeUnusable));
}

// Handles SIGABRT. Returns where the store is not to blame, and the process is ended as it would have been.
// Where it is, the library has called std::abort, and this is no more than a call from there; but a reader
// that stalls, and whoever waits for him, must not keep the process.
void printProblem(int) {
  if (*BRLCoreDataManager::Class::fatalProblem() == '\0') return;
  std::signal(SIGALRM, endWithProblem);
  ::alarm(1);
  if (lastActs()) lastActs()();
  // Else it might come in the middle of what follows, on this very thread, and wait for it.
  sigset_t alarm;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
  endWithProblem(SIGABRT);
}

// False when nothing is there. Throws Failure when that cannot be told.
bool look(const std::filesystem::path& file, struct stat& status) {
  if (::stat(file.c_str(), &status) == 0) return true;
  if (errno == ENOENT) return false;
  throw Failure(ExitStatus::storeUnusable, file.string() + ": " + std::generic_category().message(errno));
}

}  // namespace

void installForStore(const std::filesystem::path& container) {
  auto platform = platform::nativePlatform(
      {.container = container,
       .dispatch = platform::VirtualDispatch::make(),
       .onSettingsProblem = [](std::string_view line) { settingsProblems().emplace_back(line); }});
  platform.log = [](std::string_view) {};
  platform::Platform::install(std::move(platform));
  printFatalStoreProblems();
}

void printFatalStoreProblems(std::function<void()> beforeEnd) {
  lastActs() = std::move(beforeEnd);
  std::signal(SIGABRT, printProblem);
}

void printSettingsProblems() {
  for (const std::string& problem : settingsProblems()) printMessage("brenloft: " + problem);
}

std::filesystem::path folderOfContainer(const std::filesystem::path& container) {
  const platform::NativePlatformOptions standard;
  return container.empty() ? platform::applicationDataFolder(standard.applicationName) : container;
}

void printEmpty(std::string_view what, const std::filesystem::path& container) {
  printMessage(
      fmt::format("{} in {}; --container names another folder", what, folderOfContainer(container).string()));
}

std::optional<std::filesystem::path> storeIn(const std::filesystem::path& container) {
  const auto folder = folderOfContainer(container);
  const auto refuse = [&](int code) {
    throw Failure(ExitStatus::storeUnusable, folder.string() + ": " + std::generic_category().message(code));
  };
  struct stat status {};
  if (!look(folder, status)) {
    if (!container.empty()) refuse(ENOENT);
    return std::nullopt;
  }
  if (!S_ISDIR(status.st_mode)) refuse(ENOTDIR);
  // Asked before the folder is there, the library would make it.
  auto file = BRLCoreDataManager::Class::storeFile();
  // A file of no octets is what a creation that was cut short leaves.
  if (!look(file, status) || (S_ISREG(status.st_mode) && status.st_size == 0)) return std::nullopt;
  return file;
}

bool confirmed(const std::string& question, bool yes) {
  if (yes) return true;
  if (::isatty(STDIN_FILENO) != 1)
    throw Failure(ExitStatus::usage,
                  "standard input is not a terminal to ask on; --yes goes on without asking");
  fmt::print(stderr, "{} [y/N] ", question);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace brenloft
