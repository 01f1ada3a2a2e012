#include <csignal>
#include <exception>

#include <fmt/core.h>

#include "tools/brenloft/CommandLine.h"

int main(int argc, char** argv) {
  // A reader that went away is noticed by the failed write.
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) return static_cast<int>(brenloft::ExitStatus::failed);
  try {
    return static_cast<int>(brenloft::runCommandLine(argc, argv));
  } catch (const brenloft::Failure& failure) {
    fmt::print(stderr, "brenloft: {}\n", failure.what());
    return static_cast<int>(failure.status());
  } catch (const std::exception& error) {
    fmt::print(stderr, "brenloft: {}\n", error.what());
    return static_cast<int>(brenloft::ExitStatus::failed);
  }
}
