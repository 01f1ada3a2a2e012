#pragma once

#include <string_view>

namespace brenloft::web {

/// A file that was compiled in: those of gateway/web/page, "dygraph.min.js", and its licence, "copyright".
std::string_view pageAsset(std::string_view name);

}  // namespace brenloft::web
