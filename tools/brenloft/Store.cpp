#include "tools/brenloft/Store.h"

#include <csignal>
#include <iostream>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "platform/NativePlatform.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

namespace {

// The library's diagnostic lines, which matter only when it ends the process. Never destroyed.
std::string& keptLines() {
  static std::string& lines = *new std::string;
  return lines;
}

void tellKeptLines(int) {
  const std::string& lines = keptLines();
  if (::write(STDERR_FILENO, lines.data(), lines.size()) < 0) ::_exit(static_cast<int>(ExitStatus::failed));
}

}  // namespace

void installForStore(const std::filesystem::path& container) {
  auto platform =
      platform::nativePlatform({.container = container, .dispatch = platform::VirtualDispatch::make()});
  keptLines().clear();
  platform.log = [](std::string_view line) { (keptLines() += line) += '\n'; };
  std::signal(SIGABRT, tellKeptLines);
  platform::Platform::install(std::move(platform));
}

void requireStore() {
  if (const auto problem = BRLCoreDataManager::Class::storeProblem())
    throw Failure(ExitStatus::storeUnusable, *problem);
}

bool confirmed(const std::string& question, bool yes) {
  if (yes) return true;
  if (::isatty(STDIN_FILENO) != 1)
    throw Failure(ExitStatus::usage, "standard input is no terminal to ask on; --yes goes on without asking");
  fmt::print(stderr, "{} [y/N] ", question);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace brenloft
