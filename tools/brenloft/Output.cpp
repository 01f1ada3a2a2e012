#include "tools/brenloft/Output.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

constexpr std::size_t kBlock = 65'536;

}  // namespace

void Output::write(std::string_view text) {
  const std::scoped_lock lock(mutex_);
  if (error_ != 0) return;
  pending_ += text;
  if (buffering_ == Buffering::lines || pending_.size() >= kBlock) flushLocked();
}

void Output::flush() {
  const std::scoped_lock lock(mutex_);
  flushLocked();
}

void Output::flushLocked() {
  std::string_view rest = pending_;
  while (!rest.empty() && error_ == 0) {
    const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0)
      rest.remove_prefix(static_cast<std::size_t>(written));
    else if (errno != EINTR)
      error_ = errno;
  }
  pending_.clear();
}

bool Output::isClosed() const {
  const std::scoped_lock lock(mutex_);
  return error_ != 0;
}

void Output::finish() {
  flush();
  const std::scoped_lock lock(mutex_);
  if (error_ != 0 && error_ != EPIPE)
    throw Failure(ExitStatus::failed, "standard output: " + std::generic_category().message(error_));
}

bool Output::isTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

}  // namespace brenloft
