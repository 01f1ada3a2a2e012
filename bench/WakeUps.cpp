// What a machine takes for wake-ups alone: a thread reads a pipe and hands on to the first queue, each queue
// hands on to the next, and the last one writes. Nothing else is done.
//
//   wake_ups QUEUES RATE SECONDS     so many reads a second; tells the share of a core

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/Seconds.h"
#include "platform/dispatch/RealTimeDispatch.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void feed(int pipe, int rate, int seconds) {
  auto next = Clock::now();
  for (int i = 0; i < rate * seconds; ++i) {
    std::this_thread::sleep_until(next += std::chrono::nanoseconds(std::chrono::seconds(1)) / rate);
    if (::write(pipe, "x", 1) != 1) break;
  }
  ::_exit(0);
}

void handOn(const std::vector<platform::dispatch_queue_t>& queues, std::size_t at, int sink) {
  if (at < queues.size()) return queues[at]->async([&queues, at, sink] { handOn(queues, at + 1, sink); });
  static_cast<void>(!::write(sink, "x", 1));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fprintf(stderr, "usage: wake_ups QUEUES RATE SECONDS\n");
    return 2;
  }
  const int rate = std::atoi(arguments[2]);
  const int seconds = std::atoi(arguments[3]);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return 1;
  const pid_t feeder = ::fork();
  if (feeder == 0) feed(ends[1], rate, seconds);
  ::close(ends[1]);

  const auto dispatch = platform::RealTimeDispatch::make();
  std::vector<platform::dispatch_queue_t> queues;
  for (int i = 0; i < std::atoi(arguments[1]); ++i) queues.push_back(dispatch->createQueue("stage"));
  const int sink = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  const auto took = brenloft::bench::secondsOf([&] {
    std::array<char, 64> octets{};
    while (::read(ends[0], octets.data(), octets.size()) > 0) handOn(queues, 0, sink);
  });
  std::printf("%zu threads, %d reads a second: %.2f %% of a core\n", queues.size() + 1, rate,
              100 * took.processor / took.wall);
  return ::waitpid(feeder, nullptr, 0) == feeder ? 0 : 1;
}
