#pragma once

#include <stdexcept>

#include "platform/foundation/Export.h"

namespace platform {

/// An argument that can only be a mistake of the program: an unknown key, a value of the wrong kind, a
/// missing resource.
class BRL_EXPORT NSInvalidArgumentException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace platform
