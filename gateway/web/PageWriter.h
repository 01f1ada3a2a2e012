#pragma once

#include <string>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

struct PageForm {
  std::string title;
  std::string nonce;  ///< letters and digits that nobody can guess: only scripts with it run
};

/// The whole page: one HTML document that needs nothing else. Everything that somebody else wrote stands in
/// it as text. Pure.
std::string writePage(const PageModel& page, const PageForm& form);

}  // namespace brenloft::web
