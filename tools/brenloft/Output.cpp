#include "tools/brenloft/Output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/dispatch/RealTimeDispatch.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Keyboard.h"
#include "tools/brenloft/StopSignals.h"

namespace brenloft {
namespace {

constexpr std::size_t kBlock = 65'536;

// Milliseconds after which a wait looks whether it has become too long.
constexpr int kWait = 100;

bool takesControlSequences() {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

// Asked at once, for a signal handler cannot.
const bool hasControlSequences = takesControlSequences();

bool isRegularFile() {
  struct stat status {};
  return ::fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

Output::Output(Buffering buffering) : buffering_(buffering), mayStall_(!isRegularFile()) {}

void Output::write(std::string_view text) {
  if (isClosed()) return;
  {
    const std::scoped_lock lock(mutex_);
    pending_ += text;
  }
  if (buffering_ == Buffering::lines || (buffering_ == Buffering::blocks && isFull())) flush();
}

bool Output::isFull() {
  const std::scoped_lock lock(mutex_);
  return pending_.size() >= kBlock;
}

void Output::flush() {
  const std::scoped_lock sending(sending_);
  {
    const std::scoped_lock lock(mutex_);
    going_.swap(pending_);
  }
  send(going_);
  going_.clear();
}

void Output::flushSoon() {
  if (buffering_ != Buffering::bursts) return;
  if (isFull()) return flushAndTell();
  if (isFlushAwaited_.exchange(true)) return;
  platform::RealTimeDispatch::asyncOnCurrent([this] {
    isFlushAwaited_ = false;
    flushAndTell();
  });
}

void Output::flushAndTell() {
  flush();
  if (isClosed()) onClosed_();
}

void Output::send(std::string_view text) {
  while (!text.empty() && !isClosed()) {
    if (mayStall_ && !awaitReader()) break;
    // A pipe that can be written takes this much at once, so that only the wait ever blocks.
    const std::size_t size = mayStall_ ? std::min<std::size_t>(text.size(), PIPE_BUF) : text.size();
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), size);
    if (written >= 0)
      text.remove_prefix(static_cast<std::size_t>(written));
    else if (errno != EINTR)
      error_ = errno;
  }
}

bool Output::awaitReader() {
  pollfd polled{STDOUT_FILENO, POLLOUT, 0};
  while (true) {
    const bool isLast = StopSignals::isOverdue();
    const int ready = ::poll(&polled, 1, isLast ? 0 : kWait);
    // Whatever else is wrong, the write will tell.
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (ready < 0 || !isLast) continue;
    error_ = EPIPE;
    return false;
  }
}

void Output::checkReader() {
  pollfd polled{STDOUT_FILENO, 0, 0};
  if (::poll(&polled, 1, 0) <= 0 || (polled.revents & (POLLERR | POLLHUP)) == 0) return;
  int none = 0;
  error_.compare_exchange_strong(none, EPIPE);
}

void Output::finish() {
  flush();
  if (const int error = error_; error != 0 && error != EPIPE)
    throw Failure(ExitStatus::failed, "standard output: " + std::generic_category().message(error));
}

Output::Size Output::screenSize() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return {};
  return {size.ws_row, size.ws_col};
}

bool Output::isTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

bool Output::isScreen(int descriptor) {
  return hasControlSequences && ::isatty(descriptor) == 1;
}

void Output::restoreTerminal() {
  Keyboard::restore();
  constexpr std::string_view kRestore = "\x1b[0m\x1b[?25h";
  if (isScreen() && ::write(STDOUT_FILENO, kRestore.data(), kRestore.size()) < 0) {
    // Then there is nothing to restore.
  }
}

}  // namespace brenloft
