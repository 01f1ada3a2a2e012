#pragma once

#include <pty.h>
#include <unistd.h>

namespace support {

inline constexpr const char* kNoPseudoTerminals = "no pseudo-terminal can be made here; is /dev/pts mounted?";

inline bool hasPseudoTerminals() {
  int controller = -1;
  int terminal = -1;
  if (::openpty(&controller, &terminal, nullptr, nullptr, nullptr) != 0) return false;
  ::close(controller);
  ::close(terminal);
  return true;
}

}  // namespace support
