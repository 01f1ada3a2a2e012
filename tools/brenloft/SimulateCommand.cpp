#include <chrono>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "platform/simulated/BeaconWorld.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/StopSignals.h"

namespace brenloft {

ExitStatus runSimulate(const SimulateOptions& options) {
  StopSignals signals;
  signals.watch([] {});
  std::string error;
  const auto writer = platform::BtsnoopWriter::create(options.out, error);
  if (!writer) throw Failure(ExitStatus::failed, error);

  const platform::BeaconWorldOptions place{
      .sensors = options.beacons, .iBeacons = options.iBeacons, .seed = options.seed};
  platform::BeaconWorld world(place);
  const auto end = place.start + options.duration;
  while (!StopSignals::isStopped() && error.empty()) {
    const platform::AdvertisingReport report = world.next();
    if (report.time >= end) break;
    error = writer->write(report);
  }
  if (error.empty()) error = writer->flush();
  if (!error.empty()) throw Failure(ExitStatus::failed, error);
  return ExitStatus::done;
}

}  // namespace brenloft
