#pragma once

#include <memory>

#include "platform/bluetooth/CBCentralManager.h"
#include "platform/dispatch/Dispatch.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSUserDefaults.h"
#include "platform/location/CLLocationManager.h"

namespace platform {

/// The services that an application runs on. Install one, once, before the first use of the library; the
/// library takes its services from there and from nowhere else.
///
/// Threads: install from one thread, before any other use. Services are shared: each lives as long as
/// somebody holds it. The installed platform lives to the end of the process.
struct BRL_EXPORT Platform {
  std::shared_ptr<DispatchService> dispatch{};
  std::shared_ptr<BluetoothService> bluetooth{};
  std::shared_ptr<CLLocationService> location{};
  std::shared_ptr<NSUserDefaults> userDefaults{};
  std::shared_ptr<const NSFileManager> fileManager{};
  std::shared_ptr<const NSBundle> bundle{};
  LogSink log{};

  /// Every service must be there. Once the library runs on a platform, installed or its own, another one
  /// would go unused: installing it ends the process, with a line on standard error.
  static void install(Platform platform);
  /// The installed platform; without one, the native one is installed first.
  static const Platform& installed();
};

}  // namespace platform
