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
      return platform::Result<>();
    });
  }
  auto writer = BtsnoopWriter::create(options.out, std::move(stop));
  if (!writer) throw Failure(ExitStatus::failed, writer.error().text);
  return *std::move(writer);
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
  platform::Result<> written;
  while (!stop.stop_requested() && !out.isClosed() && written) {
    const platform::AdvertisingReport report = world.next();
    if (report.time >= end) break;
    written = writer->write(report);
  }
  if (written) written = writer->flush();
  if (!written) throw Failure(ExitStatus::failed, written.error().text);
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
