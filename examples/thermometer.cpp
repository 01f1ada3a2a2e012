// Prints the temperature of every sensor beacon that is heard, and says when one falls silent.
// Without arguments it listens to the machine's radio until it is killed; with "simulated" it runs ten
// seconds of a simulated place, which needs neither radio nor time.

#include <chrono>
#include <iostream>
#include <string_view>

#include <BrenloftSDK/BRLContextManager.h>
#include <platform/NativePlatform.h>
#include <platform/dispatch/VirtualDispatch.h>
#include <platform/simulated/SimulatedWorldSource.h>

// Overrides what it wants to hear of; the library finds out which operations those are from the type.
class Thermometer final : public BRLDelegateOf<Thermometer> {
 public:
  void contextManager_forBeacon(BRLContextManager&,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    std::cout << beacon->uuid().value_or("?");
    if (beacon->status() == 2)
      std::cout << " is silent\n";
    else
      std::cout << ' ' << beacon->temperature().value_or("") << '\n';
  }
};

void search(Thermometer& thermometer) {
  BRLContextManager::Class::brlWithProximityUUID({});  // sensors of every service
  BRLContextManager::Class::setBeaconType(1);
  BRLContextManager::Class::setDelegate(&thermometer);
  BRLContextManager::Class::startLeScan();
}

void runSimulated(Thermometer& thermometer) {
  const auto clock = platform::VirtualDispatch::make();
  platform::NativePlatformOptions options;
  options.dispatch = clock;
  options.radio = platform::makeSimulatedWorldSource(clock, {}, std::chrono::seconds(10));
  auto services = platform::nativePlatform(options);
  services.userDefaults = platform::makeInMemoryUserDefaults();
  platform::Platform::install(services);
  search(thermometer);
  clock->advance(std::chrono::seconds(11));
}

int main(int argc, char** argv) {
  Thermometer thermometer;
  if (argc > 1 && std::string_view(argv[1]) == "simulated") {
    runSimulated(thermometer);
  } else {
    const auto loop = platform::RealTimeDispatch::make();
    platform::NativePlatformOptions options;
    options.dispatch = loop;
    platform::Platform::install(platform::nativePlatform(options));
    search(thermometer);
    loop->run();
  }
  BRLContextManager::Class::stopLeScan();  // reports what is present as silent
}
