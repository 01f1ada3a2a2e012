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
  /// Where the radio comes from; without one, the machine's own is chosen when the first scan starts.
  std::shared_ptr<AdvertisingReportSource> radio;
  /// The dispatch service; without one, real time.
  std::shared_ptr<DispatchService> dispatch;
};

/// What this machine offers.
BRL_EXPORT Platform nativePlatform(NativePlatformOptions options);

}  // namespace platform
