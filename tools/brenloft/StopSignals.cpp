#include "tools/brenloft/StopSignals.h"

#include <array>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/brenloft/Keyboard.h"

namespace brenloft {
namespace {

constexpr int kPatience = 800;  // milliseconds; the rest of the second is for what follows

// One that hung up cannot be opened any more.
bool hasTerminal() {
  const int terminal = ::open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC);
  if (terminal >= 0) ::close(terminal);
  return terminal >= 0;
}

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
  return set;
}

}  // namespace

void StopSignals::leaveToOthers() {
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void StopSignals::raise() {
  ::kill(::getpid(), SIGTERM);
}

StopSignals::StopSignals() : hadTerminal_(hasTerminal()), end_(::eventfd(0, EFD_CLOEXEC)) {
  leaveToOthers();
  const sigset_t set = stopSignals();
  signals_ = ::signalfd(-1, &set, SFD_CLOEXEC);
}

StopSignals::~StopSignals() {
  if (thread_.joinable()) {
    ::eventfd_write(end_, 1);
    thread_.join();
  }
  ::close(signals_);
  ::close(end_);
}

void StopSignals::watch(std::function<void()> onStop, std::function<void()> onHangUp) {
  thread_ = std::thread(
      [this, onStop = std::move(onStop), onHangUp = std::move(onHangUp)] { wait(onStop, onHangUp); });
}

bool StopSignals::isTerminalGone() const {
  return hadTerminal_ && !hasTerminal();
}

void StopSignals::wait(const std::function<void()>& onStop, const std::function<void()>& onHangUp) const {
  std::array<pollfd, 2> events{{{signals_, POLLIN, 0}, {end_, POLLIN, 0}}};
  while (true) {
    const int ready = ::poll(events.data(), events.size(), stopped_ && !overdue_ ? kPatience : -1);
    if (ready == 0) overdue_ = true;
    if (ready <= 0) continue;
    if (events[1].revents != 0) return;
    signalfd_siginfo info{};
    if (::read(signals_, &info, sizeof info) != sizeof info) continue;
    if (info.ssi_signo == SIGHUP && onHangUp && !isStopped() && !isTerminalGone()) {
      onHangUp();
      continue;
    }
    if (stopped_.exchange(true)) {
      Keyboard::restore();
      ::_exit(128 + static_cast<int>(info.ssi_signo));
    }
    onStop();
  }
}

}  // namespace brenloft
