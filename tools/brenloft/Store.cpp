#include "tools/brenloft/Store.h"

#include <iostream>

#include <fmt/format.h>
#include <unistd.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "platform/NativePlatform.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

void installForStore(const std::filesystem::path& container) {
  platform::Platform::install(
      platform::nativePlatform({.container = container, .dispatch = platform::VirtualDispatch::make()}));
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
