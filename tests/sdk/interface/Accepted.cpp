#include "BrenloftSDK/BRLContextManager.h"
#include "platform/NativePlatform.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "platform/simulated/SimulatedWorldSource.h"

// What applications write; compiles without a warning.

using Beacon = std::shared_ptr<BRLBeaconDataModel>;

class Quiet final : public BRLDelegateOf<Quiet> {
 public:
  void contextManager_forBeacon(BRLContextManager&, const Beacon&) noexcept override {}
  void contextManager_didRangeBeaconSensors(BRLContextManager&, const BRLRecordList&) override {}
};

void useOptions() {
  static Quiet quiet;
  BRLContextManager::Class::setDelegate(&quiet);
  platform::SimulatedPlatform simulated({.clock = platform::SimulatedPlatformOptions::Clock::realTime});
  simulated.radio().advertise({.address = {}, .flags = uint8_t{6}});
  platform::SensorFrame frame{.temperature = 2150};
  platform::NativePlatformOptions native{.container = "/tmp"};
  platform::BeaconWorldOptions world{.sensors = 4};
  platform::iBeaconFrame beacon{.major = 1};
  BRLContextManager::Class::brlWithProximityUUID(nullptr);
}
