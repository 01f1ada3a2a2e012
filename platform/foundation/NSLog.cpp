#include "platform/foundation/NSLog.h"

#include <cerrno>  // program_invocation_short_name
#include <string>
#include <utility>

#include <unistd.h>

#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSDateFormatter.h"
#include "platform/foundation/WriteAll.h"

namespace platform {
namespace {

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
    writeAll(STDERR_FILENO, line);  // there is nowhere left to complain
  };
}

}  // namespace platform
