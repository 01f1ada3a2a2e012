#pragma once

#include <cstddef>
#include <string_view>

namespace platform {

/// The octets of the well-formed UTF-8 character at the start of a text (Unicode, table 3-7); 0: none.
std::size_t characterLength(std::string_view text);

}  // namespace platform
