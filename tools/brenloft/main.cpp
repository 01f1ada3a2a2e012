#include <csignal>
#include <exception>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "tools/brenloft/CommandLine.h"
#include "tools/brenloft/Messages.h"

namespace {

// A standard stream that is closed would be the next file that is opened. Opened the wrong way round, input
// and output stay what they were: they fail.
void keepStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0) continue;
    const int mode = stream == STDOUT_FILENO ? O_RDONLY : O_WRONLY;
    if (::open("/dev/null", mode) != stream) ::_exit(static_cast<int>(brenloft::ExitStatus::failed));
  }
}

int end(brenloft::ExitStatus status, const std::string& why) {
  brenloft::printMessage("brenloft: " + why);
  return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardStreams();
  // A reader that went away, and a file that may not grow, are noticed by the failed write.
  for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
  try {
    return static_cast<int>(brenloft::runCommandLine(argc, argv));
  } catch (const brenloft::Failure& failure) {
    return end(failure.status(), failure.what());
  } catch (const std::exception& error) {
    return end(brenloft::ExitStatus::failed, error.what());
  }
}
