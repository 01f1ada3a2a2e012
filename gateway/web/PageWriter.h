#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

struct PageForm {
  std::string title;
  std::string nonce{};  ///< letters and digits that nobody can guess: only scripts with it run
  /// Of a live page: the row up to which it says everything. Its style and scripts then are files beside it,
  /// and its policy the server's.
  std::optional<int64_t> seq{};
};

/// What a live page has beside it: "page.css", "page.js" and "dygraph.js"; nothing else.
std::optional<std::string> pageFile(std::string_view name);

/// The whole page as one HTML document. Everything that somebody else wrote stands in it as text. Pure.
std::string writePage(const PageModel& page, const PageForm& form);

}  // namespace brenloft::web
