#pragma once

#include <atomic>
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
  /// Whether an automatic channel has found its adapter in use, as `makeHCISocketTransport` keeps it; sources
  /// made of copies of these options have it in common.
  std::shared_ptr<std::atomic<bool>> sharing = std::make_shared<std::atomic<bool>>(false);
  dispatch_queue_t queue = nullptr;  ///< as in `HCIDriverOptions`
};

/// A driver over the transport that the address names. Nothing is opened before `open`; an adapter named by
/// its Bluetooth address is looked up anew at each try, so it may be renumbered.
std::shared_ptr<HCIDriver> makeHCISource(HCISourceOptions options);

}  // namespace platform
