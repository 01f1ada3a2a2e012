#include "platform/NativePlatform.h"

#include <utility>

#include "platform/NativeRadio.h"
#include "platform/bluetooth/RadioService.h"
#include "platform/location/BeaconLocationService.h"

namespace platform {
namespace {

constexpr std::string_view kAuthorizationKey = "LocationAuthorizationStatus";

// What the settings hold; without a number, always.
CLAuthorizationStatus storedAuthorization(const NSUserDefaults& defaults) {
  const auto value = defaults.objectForKey(kAuthorizationKey);
  const auto* number = value ? std::get_if<NSNumber>(&*value) : nullptr;
  if (number == nullptr) return CLAuthorizationStatus::authorizedAlways;
  const int64_t status = number->integerValue();
  const bool isKnown =
      status >= 0 && status <= static_cast<int64_t>(CLAuthorizationStatus::authorizedWhenInUse);
  return isKnown ? static_cast<CLAuthorizationStatus>(status) : CLAuthorizationStatus::restricted;
}

}  // namespace

Platform nativePlatform(NativePlatformOptions options) {
  if (options.source && !options.radio) options.radio = options.source->reports;
  if (options.source && !options.dispatch) options.dispatch = options.source->loop->dispatch();
  const bool isDataFolder = options.container.empty();
  const auto folder = isDataFolder ? applicationDataFolder(options.applicationName) : options.container;
  const auto access = isDataFolder ? FolderAccess::ownerOnly : FolderAccess::byUmask;
  Platform platform;
  platform.dispatch = options.dispatch ? std::move(options.dispatch) : RealTimeDispatch::make();
  platform.log = standardErrorLog(platform.dispatch);
  platform.userDefaults =
      makeFileUserDefaults(folder / kSettingsFileName,
                           options.onSettingsProblem ? options.onSettingsProblem : platform.log, access);
  platform.fileManager = makeFileManager(folder, access);
  platform.bundle = libraryBundle();
  const LogSink radioLog = options.onRadioDiagnostic ? std::move(options.onRadioDiagnostic) : platform.log;
  auto radio = options.radio ? std::move(options.radio) : makeNativeRadio(platform.dispatch, radioLog);
  platform.bluetooth =
      RadioService::make(std::move(radio), platform.dispatch, radioLog, std::move(options.filter));
  platform.location = makeBeaconLocationService({
      .bluetooth = platform.bluetooth,
      .dispatch = platform.dispatch,
      .authorization = storedAuthorization(*platform.userDefaults),
      .storeAuthorization =
          [defaults = platform.userDefaults](CLAuthorizationStatus status) {
            defaults->setObject_forKey(NSNumber(static_cast<int32_t>(status)), kAuthorizationKey);
            defaults->synchronize();
          },
  });
  return platform;
}

}  // namespace platform
