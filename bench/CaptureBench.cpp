// Advertising reports a second, from the octets of a capture file to merged advertisements.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "bench/SmallRun.h"
#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/bluetooth/capture/CaptureReader.h"

namespace platform {
namespace {

using brenloft::bench::inSmallRun;

const int kReports = brenloft::bench::isSmallRun() ? 20'000 : 200'000;

/// A capture in a file that goes with the object: sensor frames of as many beacons as `beacons` says, each
/// with its service UUID; one in four changes.
class BenchCapture {
 public:
  explicit BenchCapture(int64_t beacons) : path_(temporaryPath()) { write(beacons); }
  ~BenchCapture() { std::filesystem::remove(path_); }
  BenchCapture(const BenchCapture&) = delete;
  BenchCapture& operator=(const BenchCapture&) = delete;
  const std::string& path() const { return path_; }

 private:
  static std::string temporaryPath() {
    const auto name = "capture-bench-" + std::to_string(::getpid()) + ".btsnoop";
    return (std::filesystem::temp_directory_path() / name).string();
  }
  void write(int64_t beacons);

  const std::string path_;
};

void BenchCapture::write(int64_t beacons) {
  const auto writer = *BtsnoopWriter::create(path_);
  Data data{std::byte{2},    std::byte{1},    std::byte{6},  std::byte{3},   std::byte{3},
            std::byte{0x0F}, std::byte{0x18}, std::byte{23}, std::byte{0xFF}};
  data.resize(31);
  for (int i = 0; i < kReports; ++i) {
    AdvertisingReport report;
    const auto beacon = static_cast<uint64_t>(i % beacons);
    report.time = Date(std::chrono::milliseconds(i));
    report.address.isRandom = true;
    report.address.octets = {0xC0, 0, 0, 0, static_cast<uint8_t>(beacon >> 8), static_cast<uint8_t>(beacon)};
    report.rssi = -60;
    data[20] = static_cast<std::byte>(i / beacons / 4);
    report.data = data;
    writer->write(report);
  }
}

void readAndMerge(benchmark::State& state, const std::string& path) {
  int64_t reports = 0;
  for ([[maybe_unused]] auto _ : state) {
    const auto reader = *CaptureReader::open(path, {});
    AdvertisementMerger merger;
    while (reader->next() != CaptureReader::Next::end)
      reader->read([&](const AdvertisingReport& report) {
        benchmark::DoNotOptimize(merger.merge(report));
        ++reports;
      });
  }
  state.SetItemsProcessed(reports);
}

void captureToMergedAdvertisement(benchmark::State& state) {
  const BenchCapture capture(state.range(0));
  readAndMerge(state, capture.path());
}
BENCHMARK(captureToMergedAdvertisement)
    ->Apply(inSmallRun<1>)
    ->Arg(1)
    ->Arg(100)
    ->Arg(10'000)
    ->Unit(benchmark::kMillisecond);

void captureToReport(benchmark::State& state) {
  const BenchCapture capture(100);
  int64_t reports = 0;
  for ([[maybe_unused]] auto _ : state) {
    const auto reader = *CaptureReader::open(capture.path(), {});
    while (reader->next() != CaptureReader::Next::end)
      reader->read([&](const AdvertisingReport&) { ++reports; });
  }
  state.SetItemsProcessed(reports);
}
BENCHMARK(captureToReport)->Apply(inSmallRun<1>)->Unit(benchmark::kMillisecond);

// The capture that BENCH_CAPTURE names, for who compares it with another program.
[[maybe_unused]] const bool kIsRegistered = [] {
  const char* path = std::getenv("BENCH_CAPTURE");
  if (path != nullptr) benchmark::RegisterBenchmark("fileToMergedAdvertisement", readAndMerge, path);
  return path != nullptr;
}();

}  // namespace
}  // namespace platform
