#pragma once

#include <cstdint>
#include <cstdlib>

namespace brenloft::bench {

/// Whether instructions are counted (`./test bench --check`): the same small work each time, for valgrind.
inline bool isSmallRun() {
  static const bool isSmall = std::getenv("BENCH_SMALL") != nullptr;
  return isSmall;
}

/// What a benchmark applies to do so many iterations then.
template <int64_t kIterations, class Benchmark>
void inSmallRun(Benchmark* benchmark) {
  if (isSmallRun()) benchmark->Iterations(kIterations);
}

}  // namespace brenloft::bench
