#include "gateway/mqtt/MachineClock.h"

#include <chrono>
#include <ctime>
#include <fstream>
#include <string>

#include <sys/timex.h>

namespace brenloft {
namespace {

std::string bootIdentifier() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string text;
  std::getline(file, text);
  return text;
}

}  // namespace

ClockState clockOfMachine() {
  static const std::string boot = bootIdentifier();
  timex about{};
  const int state = ::adjtimex(&about);
  timespec since{};
  ::clock_gettime(CLOCK_BOOTTIME, &since);
  const auto elapsed = std::chrono::seconds(since.tv_sec) + std::chrono::nanoseconds(since.tv_nsec);
  return {.isSynchronised = state >= 0 && state != TIME_ERROR && (about.status & STA_UNSYNC) == 0,
          .error = std::chrono::milliseconds(about.maxerror / 1'000),
          .boot = boot,
          .sinceBoot = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed)};
}

}  // namespace brenloft
