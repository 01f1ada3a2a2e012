#include <chrono>
#include <memory>
#include <string>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/simulated/BeaconWorld.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/StopSignals.h"

namespace brenloft {
namespace {

using platform::BtsnoopWriter;

std::unique_ptr<BtsnoopWriter> makeWriter(const SimulateOptions& options, Output& out) {
  if (options.out.empty()) {
    if (Output::isTerminal())
      throw Failure(ExitStatus::usage, "--out: a terminal shows no capture; name a file or use a pipe");
    return BtsnoopWriter::create([&out](platform::DataView octets) {
      out.write(platform::textOf(octets));
      return std::string();
    });
  }
  std::string error;
  auto writer = BtsnoopWriter::create(options.out, error);
  if (!writer) throw Failure(ExitStatus::failed, error);
  return writer;
}

}  // namespace

ExitStatus runSimulate(const SimulateOptions& options) {
  StopSignals signals;
  signals.watch([] {});
  Output out(Output::Buffering::blocks);
  const auto writer = makeWriter(options, out);
  const platform::BeaconWorldOptions place{
      .sensors = options.beacons, .iBeacons = options.iBeacons, .seed = options.seed};
  platform::BeaconWorld world(place);
  const auto end = place.start + options.duration;
  std::string error;
  while (!StopSignals::isStopped() && !out.isClosed() && error.empty()) {
    const platform::AdvertisingReport report = world.next();
    if (report.time >= end) break;
    error = writer->write(report);
  }
  if (error.empty()) error = writer->flush();
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
