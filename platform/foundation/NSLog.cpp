#include "platform/foundation/NSLog.h"

#include <cerrno>
#include <string>
#include <utility>

#include <unistd.h>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSDateFormatter.h"

namespace platform {
namespace {

// In one write while the descriptor takes it, so that lines of several processes do not mix.
void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;  // there is nowhere left to complain
    text.remove_prefix(static_cast<size_t>(written));
  }
}

std::string prefix(Date date) {
  NSDateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS");
  std::string line = formatter.stringFromDate(date);
  line.append(" ").append(program_invocation_short_name);
  line.append("[").append(std::to_string(getpid())).append(":").append(std::to_string(gettid())).append("] ");
  return line;
}

}  // namespace

LogSink standardErrorLog(std::shared_ptr<const DispatchService> dispatch) {
  return [dispatch = std::move(dispatch)](std::string_view text) {
    std::string line = prefix(dispatch->date());
    line.append(text).append("\n");
    writeAll(STDERR_FILENO, line);
  };
}

}  // namespace platform
