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
  /// The radio. Without it the source's is taken; without a source, too, the machine's own is
  /// looked for.
  std::shared_ptr<AdvertisingReportSource> radio{};
  /// The dispatch service; without one, the source's, or real time.
  std::shared_ptr<DispatchService> dispatch{};
  /// Gets a line when the settings cannot be read or stored. Without it the line goes to the log.
  LogSink onSettingsProblem{};
  /// False keeps an advertisement from the application. Without a filter all are delivered.
  std::function<bool(const CBAdvertisementData&)> filter{};
  /// Gets lines about the radio that its states do not tell. Without it they go to the log.
  LogSink onRadioDiagnostic{};
};

inline constexpr std::string_view kSettingsFileName = "settings.json";

/// What this machine offers. "settings.json" and the documents lie directly in the container or the data
/// folder. Only its owner may read what is made in the data folder; in a container the umask decides. The
/// setting "LocationAuthorizationStatus" (0 to 4) is the location authorization. Another number counts as
/// restricted; without a number it is "always".
BRL_EXPORT Platform nativePlatform(NativePlatformOptions options);

}  // namespace platform
