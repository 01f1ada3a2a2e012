#pragma once

#include <chrono>
#include <ctime>
#include <functional>

#include <valgrind/callgrind.h>

namespace brenloft::bench {

/// What a piece of work took.
struct Seconds {
  double wall = 0;
  double processor = 0;  ///< what a busy machine leaves as it is
};

inline Seconds secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  const auto processor = std::clock();
  work();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC};
}

/// Under callgrind its instructions are told as those of `what`, too.
inline Seconds secondsOf(const char* what, const std::function<void()>& work) {
  CALLGRIND_ZERO_STATS;
  const Seconds seconds = secondsOf(work);
  CALLGRIND_DUMP_STATS_AT(what);
  return seconds;
}

inline void add(Seconds& sum, Seconds more) {
  sum = {sum.wall + more.wall, sum.processor + more.processor};
}

}  // namespace brenloft::bench
