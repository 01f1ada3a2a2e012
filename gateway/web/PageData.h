#pragma once

#include <string>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

/// What the page's script draws from, as JSON; docs/page.md describes it.
std::string pageData(const PageModel& page);

}  // namespace brenloft::web
