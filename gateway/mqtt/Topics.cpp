#include "gateway/mqtt/Topics.h"

#include <algorithm>

namespace brenloft {

std::string Topics::wordOf(const BeaconId& beacon) {
  std::string word = beacon.text();
  std::ranges::replace(word, '/', '_');
  return word;
}

bool Topics::isName(std::string_view text) {
  const auto isPart = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  };
  return !text.empty() && text.front() != '_' && std::ranges::all_of(text, isPart);
}

}  // namespace brenloft
