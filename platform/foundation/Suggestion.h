#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The one of these words that a misspelt one was most probably meant to be; "" when none is like it.
std::string nearest(std::string_view word, const std::vector<std::string>& words);

/// "; did you mean WORD?", or "" without a word: the end of a line that names what is unknown.
std::string didYouMean(std::string_view word);

}  // namespace platform
