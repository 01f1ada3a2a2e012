#include "tools/brenloft/Keyboard.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace brenloft {
namespace {

termios terminalBefore{};  // written once, before `isTaken`
bool isBeforeKnown = false;
std::atomic<bool> isTaken{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler reads it");

// In the background, changing the terminal would stop the program.
bool isInForeground() {
  return ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
}

void restoreAndDie(int number) {
  Keyboard::restore();
  ::raise(number);  // as without this handler, which is gone by now
}

void restoreAndStop(int number) {
  Keyboard::restore();
  std::signal(number, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, number);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  ::raise(number);
  std::signal(number, restoreAndStop);
}

// Where nobody else cares for the signal.
void handleUnhandled(int number, void (*handler)(int), int flags) {
  struct sigaction action {};
  if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
  action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  ::sigaction(number, &action, nullptr);
}

void restoreHoweverItEnds() {
  std::atexit(Keyboard::restore);
  for (const int number : {SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM, SIGUSR1, SIGUSR2})
    handleUnhandled(number, restoreAndDie, static_cast<int>(SA_RESETHAND));
  handleUnhandled(SIGTSTP, restoreAndStop, SA_RESTART);
}

}  // namespace

bool Keyboard::take() {
  if (::isatty(STDIN_FILENO) != 1 || !isInForeground()) return false;
  if (isTaken) return true;
  if (!isBeforeKnown) {
    if (::tcgetattr(STDIN_FILENO, &terminalBefore) != 0) return false;
    isBeforeKnown = true;
    restoreHoweverItEnds();
  }
  termios keys = terminalBefore;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VMIN] = 0;
  keys.c_cc[VTIME] = 0;
  isTaken = true;
  return ::tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
}

void Keyboard::takeAgain() {
  isTaken = false;
  take();
}

std::string Keyboard::pressed() {
  pollfd polled{STDIN_FILENO, POLLIN, 0};
  if (!take() || ::poll(&polled, 1, 0) <= 0) return {};
  std::array<char, 64> keys{};
  const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
  return count > 0 ? std::string(keys.data(), static_cast<std::size_t>(count)) : std::string();
}

void Keyboard::restore() {
  if (isTaken.exchange(false) && isInForeground()) ::tcsetattr(STDIN_FILENO, TCSANOW, &terminalBefore);
}

}  // namespace brenloft
