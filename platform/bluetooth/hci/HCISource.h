#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/bluetooth/hci/HCIDriver.h"
#include "platform/bluetooth/hci/RadioAddress.h"

namespace platform {

struct HCISourceOptions {
  RadioAddress address;
  std::shared_ptr<DispatchService> dispatch;
  /// As in `HCIDriverOptions`.
  std::function<void(std::string_view)> onDiagnostic;
};

/// A driver over the transport that the address names. Nothing is opened before `open`; an adapter named by
/// its Bluetooth address is looked up anew at each try, so it may be renumbered.
std::shared_ptr<HCIDriver> makeHCISource(HCISourceOptions options);

}  // namespace platform
