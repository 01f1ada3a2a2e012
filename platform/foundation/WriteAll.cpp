#include "platform/foundation/WriteAll.h"

#include <cerrno>

#include <unistd.h>

namespace platform {

std::error_code writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0)
      text.remove_prefix(static_cast<std::size_t>(written));
    else if (errno != EINTR)
      return {errno, std::generic_category()};
  }
  return {};
}

}  // namespace platform
