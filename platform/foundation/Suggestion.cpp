#include "platform/foundation/Suggestion.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace platform {
namespace {

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
  return result;
}

// How many characters were left out, added, exchanged for another or with their neighbour.
std::size_t mistakes(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> table(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      std::size_t& least = table[i][j];
      if (i == 0 || j == 0) {
        least = i + j;
        continue;
      }
      const bool isSame = from[i - 1] == to[j - 1];
      least = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + (isSame ? 0 : 1)});
      const bool isTurned = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (isTurned) least = std::min(least, table[i - 2][j - 2] + 1);
    }
  }
  return table[from.size()][to.size()];
}

constexpr std::size_t kShortestWord = 3;  // shorter words are like anything
constexpr std::size_t kLongestWord = 40;

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& words) {
  if (word.size() < kShortestWord || word.size() > kLongestWord) return {};
  const std::string given = lowerCase(word);
  std::size_t fewest = SIZE_MAX;
  std::string result;
  for (const std::string& candidate : words) {
    const std::string meant = lowerCase(candidate);
    const std::size_t count = meant.starts_with(given) ? 1 : mistakes(given, meant);
    // One mistake in three characters.
    if (count >= fewest || count > (std::max(given.size(), meant.size()) + 1) / 3) continue;
    fewest = count;
    result = candidate;
  }
  return result;
}

std::string didYouMean(std::string_view word) {
  return word.empty() ? "" : "; did you mean " + std::string(word) + "?";
}

}  // namespace platform
