#pragma once

namespace platform {

/// Whether a radio, or the manager that stands for it, can be used now.
enum class CBManagerState : int {
  unknown = 0,       ///< not known yet
  resetting = 1,     ///< gone for the moment; another state follows
  unsupported = 2,   ///< there is no such radio
  unauthorized = 3,  ///< this process may not use it
  poweredOff = 4,    ///< switched off, or somebody else has it
  poweredOn = 5,     ///< ready to scan
};

}  // namespace platform
