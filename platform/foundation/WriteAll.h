#pragma once

#include <string_view>
#include <system_error>

namespace platform {

/// Writes everything, in one step while the descriptor takes it, so that lines of several processes do not
/// mix.
std::error_code writeAll(int descriptor, std::string_view text);

}  // namespace platform
