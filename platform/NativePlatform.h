#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/Platform.h"
#include "platform/dispatch/RealTimeDispatch.h"

namespace platform {

class AdvertisingReportSource;

struct NativePlatformOptions {
  /// Names the application's data folder.
  std::string applicationName = "brenloft";
  /// Holds documents and settings instead of the data folder, when not empty.
  std::filesystem::path container;
  /// Where the radio comes from; without one, the machine's own is looked for.
  std::shared_ptr<AdvertisingReportSource> radio;
  /// The dispatch service; without one, real time.
  std::shared_ptr<DispatchService> dispatch;
};

/// What this machine offers. Settings are in "settings.json" and documents directly in the container or the
/// data folder. The location authorization is what the setting "LocationAuthorizationStatus" holds (0 to 4);
/// another number counts as restricted; without a number, always.
BRL_EXPORT Platform nativePlatform(NativePlatformOptions options);

}  // namespace platform
