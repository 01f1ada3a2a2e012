// Logs when beacons appear, signal an emergency and are lost, then reads the log back: logger FOLDER
// [SOURCE]. The log is the class BRLContextManager's, and so is the delegate: what is written here follows
// the names of the platform that they come from.

#include <iostream>

#include <BrenloftSDK/BRLContextManager.h>
#include <BrenloftSDK/SensorLogReader.h>
#include <platform/NativePlatform.h>

// Overrides what it wants to hear of; the library finds out which operations those are from the type.
class Logger final : public BRLDelegateOf<Logger> {
 public:
  void contextManager_forBeacon(BRLContextManager&,
                                const std::shared_ptr<BRLBeaconDataModel>& beacon) override {
    if (beacon->status() == 2) std::cout << beacon->uuid().value_or("?") << " is lost\n";
  }
};

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: logger FOLDER [SOURCE]\n";
    return 2;
  }
  std::shared_ptr<platform::RunLoop> loop;
  const auto source = platform::openSource(argc > 2 ? argv[2] : "auto", {.onEnd = [&loop] { loop->stop(); }});
  if (!source) {
    std::cerr << source.error().text << '\n';
    return 1;
  }
  loop = source->loop;
  platform::Platform::install(platform::nativePlatform({.container = argv[1], .source = *source}));

  Logger logger;
  BRLContextManager* manager =
      BRLContextManager::Class::brlWithProximityUUID({});  // sensors of every service
  manager->setBeaconType(1);
  manager->setIsLogSave(true);
  manager->setDelegate(&logger);
  manager->start();
  loop->run();
  manager->stop();  // what is present is lost

  const auto log = SensorLogReader::open(SensorLogReader::storeFile());
  if (!log) {
    std::cerr << log.error().text << '\n';
    return 1;
  }
  const auto count = (*log)->count();
  std::cout << "rows: " << count.value_or(0) << '\n';
  const auto read = (*log)->lastRows(3, [](const SensorLogReader::Row& row) {
    std::cout << row.number << ": " << row.values.uuid.value_or("?") << ' '
              << row.values.temperature.value_or("") << '\n';
    return true;
  });
  return read ? 0 : 1;
}
