#include <chrono>
#include <memory>
#include <stop_token>
#include <string>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/simulated/BeaconWorld.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/StopSignals.h"

namespace brenloft {
namespace {

using platform::BtsnoopWriter;

// Nothing when a stop ends the wait for a pipe's reader.
std::unique_ptr<BtsnoopWriter> makeWriter(const SimulateOptions& options, Output& out, std::stop_token stop) {
  if (options.out.empty()) {
    if (Output::isTerminal())
      throw Failure(ExitStatus::usage, "--out: a terminal shows no capture; name a file or use a pipe");
    return BtsnoopWriter::create([&out](platform::DataView octets) {
      out.write(platform::textOf(octets));
      return std::string();
    });
  }
  refuseContainerFile("--out", options.out);
  std::string error;
  auto writer = BtsnoopWriter::create(options.out, error, std::move(stop));
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
  return writer;
}

}  // namespace

ExitStatus runSimulate(const SimulateOptions& options) {
  std::stop_source stop;
  StopSignals signals;
  signals.watch([&] { stop.request_stop(); });
  Output out(Output::Buffering::blocks);
  const auto writer = makeWriter(options, out, stop.get_token());
  if (!writer) return ExitStatus::done;
  const platform::BeaconWorldOptions place{
      .sensors = options.beacons, .iBeacons = options.iBeacons, .seed = options.seed};
  platform::BeaconWorld world(place);
  const auto end = place.start + options.duration;
  std::string error;
  while (!stop.stop_requested() && !out.isClosed() && error.empty()) {
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
