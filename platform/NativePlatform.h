#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Platform.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/sources/Source.h"

namespace platform {

class AdvertisingReportSource;

struct NativePlatformOptions {
  /// Names the application's data folder.
  std::string applicationName = "brenloft";
  /// Holds documents and settings instead of the data folder, when not empty.
  std::filesystem::path container{};
  /// What is heard instead of the machine's own radio, on its loop's clock: see `openSource`.
  std::optional<Source> source{};
  /// Where the radio comes from; without one, it is the source's, and without a source the machine's own is
  /// looked for.
  std::shared_ptr<AdvertisingReportSource> radio{};
  /// The dispatch service; without one, the source's, or real time.
  std::shared_ptr<DispatchService> dispatch{};
  /// Takes a line when the settings cannot be read or stored; without it, they go to the log.
  LogSink onSettingsProblem{};
  /// Refuses advertisements that the application shall not hear; without it, all are delivered.
  std::function<bool(const CBAdvertisementData&)> filter{};
  /// Takes a line about the radio that its states do not tell; without it, they go to the log.
  LogSink onRadioDiagnostic{};
};

inline constexpr std::string_view kSettingsFileName = "settings.json";

/// What this machine offers. Settings are in "settings.json" and documents directly in the container or the
/// data folder. What is made in the data folder only its owner may read; in a container the umask decides.
/// The location authorization is what the setting "LocationAuthorizationStatus" holds (0 to 4); another
/// number counts as restricted; without a number, always.
BRL_EXPORT Platform nativePlatform(NativePlatformOptions options);

}  // namespace platform
