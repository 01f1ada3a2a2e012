#include <array>

#include <benchmark/benchmark.h>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "bench/SmallRun.h"

// Frames decoded a second; four different frames, so that no branch is always the same.
static void decodeFrames(benchmark::State& state) {
  std::array<std::array<std::byte, kBRLSensorFrameLength>, 4> frames{};
  for (size_t i = 0; i < frames.size(); ++i) {
    for (size_t k = 0; k < kBRLSensorFrameLength; ++k) {
      frames[i][k] = static_cast<std::byte>((i + 3) * (k * 37 + 11));
    }
  }
  size_t next = 0;
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(BRLSensorReadings::fromFrame(frames[next++ % frames.size()]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(decodeFrames)->Apply(brenloft::bench::inSmallRun<50'000>);

BENCHMARK_MAIN();
