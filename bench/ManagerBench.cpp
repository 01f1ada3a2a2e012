#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrenloftSDK/BRLContextManager.h"
#include "bench/Seconds.h"
#include "bench/SmallRun.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/bluetooth/capture/CaptureSource.h"
#include "platform/simulated/SimulatedPlatform.h"

// The whole path of an advertisement: capture octets, AD structures, merging, queue, record, delegate, with a
// number of known beacons. The manager lives to the end of its process, so each run is a child of its own.
//
//   bench_manager                    all figures
//   bench_manager known BEACONS      the processor time of an advertisement of so many beacons that are
//   known, bench_manager new BEACONS        of one of each, none of which is known, bench_manager ranged
//   BEACONS     and of one in a ranging report of so many; callgrind dumps its count

namespace {

using brenloft::bench::inSmallRun;
using brenloft::bench::isSmallRun;
using brenloft::bench::Seconds;
using brenloft::bench::secondsOf;
using platform::BluetoothAddress;
using platform::CBUUID;
using platform::Platform;
using std::chrono::microseconds;

const int kAdvertisements = isSmallRun() ? 20'000 : 200'000;
constexpr microseconds kInterval{125};  // 8,000 a second: a legacy radio's full air

std::string writeCapture(int beacons, int advertisements) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("manager-bench-" + std::to_string(getpid()))).string();
  const auto writer = *platform::BtsnoopWriter::create(path);
  platform::Date time = platform::dateWithTimeIntervalSince1970(1'767'225'600);
  for (int i = 0; i < advertisements; ++i, time += kInterval) {
    const int beacon = i % beacons;
    BluetoothAddress address{.octets = {0xC0, 0, 0, static_cast<uint8_t>(beacon >> 16),
                                        static_cast<uint8_t>(beacon >> 8), static_cast<uint8_t>(beacon)}};
    const auto packet =
        platform::sensorAdvertisement(address, CBUUID::fromShort(static_cast<uint32_t>(0x1000 + beacon)),
                                      {.battery = static_cast<uint8_t>(i % 101)});
    const platform::Data octets = packet.octets();
    writer->write(
        {.time = time, .address = address, .kind = packet.kind, .rssi = packet.rssi, .data = octets});
  }
  return path;
}

class Counter final : public BRLDelegateOf<Counter> {
 public:
  int bytes = 0;
  int beacons = 0;
  int stopAt = 0;  ///< beacons
  std::function<void()> stop;
  void contextManager_forBeacon(BRLContextManager&,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    if (beacon->status() == kBRLPresent && ++beacons == stopAt) stop();
  }
  void contextManager_didByteArray(BRLContextManager&, const std::vector<std::string>&) override { ++bytes; }
};

// One replay, but for the first advertisements.
Seconds replay(const std::string& path, int advertisements, int first = 0) {
  platform::SimulatedPlatform simulated({.location = platform::SimulatedPlatformOptions::Location::scripted});
  Platform services = simulated.services();
  const auto stop = [&] { simulated.clock().stop(); };
  const auto source = *platform::CaptureSource::make({.path = path, .onEnd = stop}, services.dispatch);
  services.bluetooth = platform::RadioService::make(source, services.dispatch);
  Platform::install(services);
  Counter counter;
  counter.stopAt = first;
  counter.stop = stop;
  BRLContextManager::Class::setDelegate(&counter);
  BRLContextManager::Class::setBeaconType(1);
  BRLContextManager::Class::startLeScan();
  if (first > 0) simulated.clock().runUntilIdle();
  const Seconds taken = secondsOf("replay", [&] { simulated.clock().runUntilIdle(); });
  if (counter.beacons != advertisements || counter.bytes != advertisements) {
    std::fprintf(stderr, "%d of %d advertisements arrived\n", counter.beacons, advertisements);
    std::exit(1);
  }
  return taken;
}

const int kRangingReports = isSmallRun() ? 20 : 200;

// Ranging reports of so many beacons, each of which has a record.
Seconds range(int beacons, int reports) {
  using Delivery = platform::ScriptedLocationService::Delivery;
  platform::SimulatedPlatform simulated({.location = platform::SimulatedPlatformOptions::Location::scripted});
  simulated.install();
  BRLDelegateHandlers handlers;
  handlers.didRangeBeaconSensors = [](BRLContextManager&, const BRLRecordList&) {};
  BRLContextManager::Class::setDelegate(&handlers);
  BRLContextManager::Class::setBeaconGroupType(2);
  simulated.clock().runDue();
  std::vector<platform::CLBeacon> report;
  for (int i = 0; i < beacons; ++i)
    report.push_back({{}, static_cast<uint16_t>(i >> 16), static_cast<uint16_t>(i), -60});
  const auto deliver = [&] { simulated.scriptedLocation().ranged(report, nullptr, Delivery::callingThread); };
  deliver();
  return secondsOf("range", [&] {
    for (int i = 0; i < reports; ++i) deliver();
  });
}

double inChild(const std::function<Seconds()>& run) {
  if (isSmallRun()) return run().wall;  // it is the only one of its process
  int channel[2];
  if (pipe(channel) != 0) std::abort();
  if (fork() == 0) {
    const double seconds = run().wall;
    _exit(write(channel[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  close(channel[1]);
  double seconds = 0;
  const bool arrived = read(channel[0], &seconds, sizeof seconds) == sizeof seconds;
  close(channel[0]);
  wait(nullptr);
  return arrived ? seconds : 0;
}

void advertisementsToDelegate(benchmark::State& state) {
  const std::string path = writeCapture(static_cast<int>(state.range(0)), kAdvertisements);
  for ([[maybe_unused]] auto _ : state) {
    const double seconds = inChild([&] { return replay(path, kAdvertisements); });
    if (seconds == 0) state.SkipWithError("the replay failed");
    state.SetIterationTime(seconds);
  }
  std::filesystem::remove(path);
  state.SetItemsProcessed(state.iterations() * kAdvertisements);
}

void rangingReports(benchmark::State& state) {
  const int beacons = static_cast<int>(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    const double seconds = inChild([&] { return range(beacons, kRangingReports); });
    if (seconds == 0) state.SkipWithError("the child failed");
    state.SetIterationTime(seconds);
  }
  state.SetItemsProcessed(state.iterations() * kRangingReports);
}

// With the last number each beacon is heard once, and all but the last five seconds' are lost.
BENCHMARK(advertisementsToDelegate)
    ->Apply(inSmallRun<1>)
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(kAdvertisements)
    ->UseManualTime();
BENCHMARK(rangingReports)->Apply(inSmallRun<1>)->Arg(10)->Arg(100)->Arg(1000)->UseManualTime();

// Nanoseconds of the processor for each, and how many there were.
void measure(const std::string& what, int beacons) {
  Seconds taken;
  int count = 20'000;
  if (what == "ranged") {
    const int reports = std::max(3, count / beacons);
    count = reports * beacons;
    taken = range(beacons, reports);
  } else {
    // A beacon is known when it was heard twice.
    const int first = what == "known" ? 2 * beacons : 0;
    if (what == "new") count = beacons;
    const std::string path = writeCapture(beacons, first + count);
    taken = replay(path, first + count, first);
    std::filesystem::remove(path);
  }
  std::printf("%d %.1f\n", count, taken.processor * 1e9 / count);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && *argv[1] != '-') {
    measure(argv[1], std::atoi(argv[2]));
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
