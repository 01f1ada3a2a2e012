#pragma once

#include <stdexcept>
#include <string>

#include "platform/foundation/Export.h"

namespace platform {

/// Why an operation of the object store failed.
struct NSError {
  /// SQLite's extended result code, or 0 where SQLite was not asked.
  int code = 0;
  std::string localizedDescription;
};

/// An argument that can only be a mistake of the program: an unknown key, a value of the wrong kind, a
/// missing resource.
class BRL_EXPORT NSInvalidArgumentException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace platform
