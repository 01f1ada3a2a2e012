#pragma once

#include <stdexcept>
#include <string>

namespace brenloft {

/// What the process tells its caller.
enum class ExitStatus : int {
  done = 0,           ///< also after Ctrl-C, SIGTERM or a closed pipe
  failed = 1,         ///< something went wrong at run time
  usage = 2,          ///< the command line makes no sense
  noRadio = 3,        ///< there is no radio to hear with
  notPermitted = 4,   ///< there is one, but this user may not use it
  storeUnusable = 5,  ///< the log and the tags cannot be opened
};

/// Ends the command with one line on standard error. Thrown on the main thread only.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& line) : std::runtime_error(line), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace brenloft
