#pragma once

namespace platform {

/// What a radio, or the manager that stands for it, is good for now.
enum class CBManagerState : int {
  unknown = 0,
  resetting = 1,
  unsupported = 2,
  unauthorized = 3,
  poweredOff = 4,
  poweredOn = 5,
};

}  // namespace platform
