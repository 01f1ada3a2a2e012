#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// What the page's script draws from, as JSON; docs/page.md describes it. `seq` makes it a live page's.
std::string pageData(const PageModel& page, std::optional<int64_t> seq = std::nullopt);

}  // namespace brenloft::web
