#include "platform/simulated/SimulatedPlatform.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace platform {
namespace {

using Options = SimulatedPlatformOptions;

/// A new folder that nobody else uses; the process ends when there can be none.
std::filesystem::path makeTemporaryFolder() {
  std::string path = std::filesystem::temp_directory_path() / "brenloft-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    std::perror(path.c_str());
    std::abort();
  }
  return path;
}

template <class Part>
Part& chosen(const std::shared_ptr<Part>& part, std::string_view name) {
  if (!part) {
    std::fprintf(stderr,
                 "SimulatedPlatform: %.*s is not part of this platform, see SimulatedPlatformOptions\n",
                 static_cast<int>(name.size()), name.data());
    std::abort();
  }
  return *part;
}

}  // namespace

struct SimulatedPlatform::Parts {
  std::shared_ptr<VirtualDispatch> clock;
  std::shared_ptr<RealTimeDispatch> realTime;
  std::shared_ptr<SimulatedRadio> radio;
  std::shared_ptr<RadioService> radioService;
  std::shared_ptr<ScriptedBluetooth> scriptedBluetooth;
  std::shared_ptr<BeaconLocationService> beaconLocation;
  std::shared_ptr<ScriptedLocationService> scriptedLocation;
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  std::filesystem::path documents;
  bool ownsDocuments = false;
  Platform services;

  void makeClock(const Options& options);
  void makeBluetooth(const Options& options);
  void makeLocation(const Options& options);
  void makeFoundation(const Options& options);
};

void SimulatedPlatform::Parts::makeClock(const Options& options) {
  if (options.clock == Options::Clock::virtualTime)
    services.dispatch = clock = VirtualDispatch::make(options.start);
  else
    services.dispatch = realTime = RealTimeDispatch::make();
}

void SimulatedPlatform::Parts::makeBluetooth(const Options& options) {
  if (options.bluetooth == Options::Bluetooth::scripted) {
    services.bluetooth = scriptedBluetooth = ScriptedBluetooth::make(options.radioState);
    return;
  }
  std::shared_ptr<AdvertisingReportSource> source;
  if (options.makeRadio)
    source = options.makeRadio(services.dispatch);
  else
    source = radio = SimulatedRadio::make(services.dispatch, {options.radioState, {}});
  services.bluetooth = radioService = RadioService::make(std::move(source), services.dispatch, log->sink());
}

void SimulatedPlatform::Parts::makeLocation(const Options& options) {
  if (options.location == Options::Location::scripted) {
    services.location = scriptedLocation =
        ScriptedLocationService::make(services.dispatch, options.authorization);
    return;
  }
  services.location = beaconLocation = makeBeaconLocationService({.bluetooth = services.bluetooth,
                                                                  .dispatch = services.dispatch,
                                                                  .authorization = options.authorization,
                                                                  .locationServicesEnabled = true,
                                                                  .answerToRequest = options.answerToRequest,
                                                                  .storeAuthorization = {}});
}

void SimulatedPlatform::Parts::makeFoundation(const Options& options) {
  ownsDocuments = options.documents.empty();
  documents = ownsDocuments ? makeTemporaryFolder() : options.documents;
  services.fileManager = makeFileManager(documents);
  services.userDefaults = options.userDefaults ? options.userDefaults : makeInMemoryUserDefaults();
  services.bundle = options.bundle ? options.bundle : libraryBundle();
  services.log = log->sink();
}

SimulatedPlatform::SimulatedPlatform(const SimulatedPlatformOptions& options)
    : parts_(std::make_unique<Parts>()) {
  parts_->makeClock(options);
  parts_->makeBluetooth(options);
  parts_->makeLocation(options);
  parts_->makeFoundation(options);
}

SimulatedPlatform::~SimulatedPlatform() {
  if (!parts_->ownsDocuments) return;
  std::error_code ignored;
  std::filesystem::remove_all(parts_->documents, ignored);
}

Platform& SimulatedPlatform::services() {
  return parts_->services;
}
void SimulatedPlatform::install() const {
  Platform::install(parts_->services);
}
void SimulatedPlatform::advance(dispatch_time_t duration) {
  clock().advance(duration);
}

VirtualDispatch& SimulatedPlatform::clock() {
  return chosen(parts_->clock, "clock");
}
RealTimeDispatch& SimulatedPlatform::realTime() {
  return chosen(parts_->realTime, "realTime");
}
SimulatedRadio& SimulatedPlatform::radio() {
  return chosen(parts_->radio, "radio");
}
RadioService& SimulatedPlatform::radioService() {
  return chosen(parts_->radioService, "radioService");
}
ScriptedBluetooth& SimulatedPlatform::scriptedBluetooth() {
  return chosen(parts_->scriptedBluetooth, "scriptedBluetooth");
}
BeaconLocationService& SimulatedPlatform::beaconLocation() {
  return chosen(parts_->beaconLocation, "beaconLocation");
}
ScriptedLocationService& SimulatedPlatform::scriptedLocation() {
  return chosen(parts_->scriptedLocation, "scriptedLocation");
}
RecordingLog& SimulatedPlatform::log() {
  return *parts_->log;
}
const std::filesystem::path& SimulatedPlatform::documents() const {
  return parts_->documents;
}

}  // namespace platform
