#include <cstdint>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/SmallRun.h"
#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/bluetooth/HCIAdvertisingEvents.h"
#include "platform/bluetooth/RadioService.h"

using namespace platform;
using brenloft::bench::inSmallRun;

namespace {

Data eventOf(uint32_t device, uint8_t type, const Data& data) {
  Data event;
  const auto put = [&](size_t octet) { event.push_back(static_cast<std::byte>(octet)); };
  for (const size_t octet :
       {size_t{0x3E}, data.size() + 12, size_t{0x02}, size_t{1}, size_t{type}, size_t{1}}) {
    put(octet);
  }
  for (unsigned shift = 0; shift < 32; shift += 8) put(device >> shift & 0xFF);
  put(0);
  put(0xC0);
  put(data.size());
  event.insert(event.end(), data.begin(), data.end());
  put(0xC4);
  return event;
}

// What sensor beacons send: flags, one UUID, a frame of 22 octets; every other event a scan response with a
// name. `isChanging` gives each round other readings than the one before.
std::vector<Data> eventsOf(uint32_t devices, bool isChanging) {
  const std::vector<CBUUID> uuids = {CBUUID::fromShort(0xFFE0)};
  std::vector<Data> events;
  for (uint8_t round = 0; round < 2; ++round) {
    for (uint32_t device = 0; device < devices; ++device) {
      Data frame(22, static_cast<std::byte>(device));
      if (isChanging) frame[0] = static_cast<std::byte>(round);
      ADBuilder advertisement;
      advertisement.flags(6).serviceUUIDs(uuids).manufacturerData(frame);
      events.push_back(eventOf(device, 0, advertisement.octets()));
      events.push_back(eventOf(device, 4, ADBuilder().localName("sensor").octets()));
    }
  }
  return events;
}

// HCI event octets to merged advertisements, with the given number of devices around.
void reportsMerged(benchmark::State& state) {
  const std::vector<Data> events = eventsOf(static_cast<uint32_t>(state.range(0)), state.range(1) != 0);
  HCIAdvertisingEvents reader;
  AdvertisementMerger merger;
  const HCIAdvertisingEvents::Handler take = [&](const AdvertisingReport& report) {
    benchmark::DoNotOptimize(merger.merge(report));
  };
  size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    reader.read(events[next], {}, take);
    next = next + 1 == events.size() ? 0 : next + 1;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(reportsMerged)
    ->Apply(inSmallRun<50'000>)
    ->ArgNames({"devices", "changing"})
    ->ArgsProduct({{1, 100, 1'000, 10'000}, {0, 1}});

// A queue that keeps nothing: what is left is the service's own cost.
class ImmediateQueue : public dispatch_queue {
 public:
  const std::string& label() const override { return label_; }
  void async(dispatch_block_t block) override { block(); }
  bool isCurrent() const override { return true; }

 private:
  std::string label_;
};

class LoopSource : public AdvertisingReportSource {
 public:
  void open(ReportHandler onReport, StateHandler onState) override {
    onReport_ = std::move(onReport);
    onState({CBManagerState::poweredOn, ""});
  }
  void startScan(const std::vector<CBUUID>& /*services*/) override {}
  void stopScan() override {}
  void close() override {}
  void hear(const AdvertisingReport& report) { onReport_(report); }

 private:
  ReportHandler onReport_;
};

class Delegate : public CBCentralManagerDelegate {
 public:
  void centralManagerDidUpdateState(CBCentralManager& /*central*/) override {}
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(CBCentralManager& /*central*/,
                                                                   const CBPeripheral& /*peripheral*/,
                                                                   const CBAdvertisementData& data,
                                                                   int64_t /*rssi*/) override {
    benchmark::DoNotOptimize(data.manufacturerData);
  }
};

// HCI event octets to the delegates of central managers with a service filter, without the queues' own cost.
void reportsDelivered(benchmark::State& state) {
  const std::vector<Data> events = eventsOf(1'000, true);
  const auto source = std::make_shared<LoopSource>();
  const auto service = RadioService::make(source, nullptr);
  Delegate delegate;
  std::vector<std::unique_ptr<CBCentralManager>> managers;
  for (int64_t i = 0; i < state.range(0); ++i) {
    managers.push_back(service->makeCentralManager(delegate, std::make_shared<ImmediateQueue>()));
    managers.back()->scanForPeripheralsWithServices_options({{CBUUID::fromShort(0xFFE0)}}, {true});
  }
  HCIAdvertisingEvents reader;
  const HCIAdvertisingEvents::Handler take = [&](const AdvertisingReport& report) { source->hear(report); };
  size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    reader.read(events[next], {}, take);
    next = next + 1 == events.size() ? 0 : next + 1;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(reportsDelivered)->Apply(inSmallRun<20'000>)->ArgName("managers")->Arg(1)->Arg(4);

}  // namespace
