#include "gateway/BeaconId.h"

#include <algorithm>
#include <charconv>

namespace brenloft {
namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

// Hexadecimal digits wherever `form` has an x, and its own characters elsewhere.
bool hasForm(std::string_view text, std::string_view form) {
  return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                    [](char c, char wanted) { return wanted == 'x' ? isHex(c) : c == wanted; });
}

std::optional<uint16_t> numberFrom(std::string_view text) {
  uint16_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace

std::optional<BeaconId> BeaconId::fromText(std::string_view given) {
  std::string text(given);
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  if (hasForm(text, "xx:xx:xx:xx:xx:xx")) std::ranges::replace(text, ':', '-');
  if (hasForm(text, "xx-xx-xx-xx-xx-xx")) return sensor(text);
  const auto first = text.find('/');
  const auto second = first == std::string::npos ? first : text.find('/', first + 1);
  if (second == std::string::npos) return std::nullopt;
  const std::string_view whole = text;
  const std::string_view uuid = whole.substr(0, first);
  const auto major = numberFrom(whole.substr(first + 1, second - first - 1));
  const auto minor = numberFrom(whole.substr(second + 1));
  if (!major || !minor || !hasForm(uuid, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx")) return std::nullopt;
  return iBeacon(uuid, *major, *minor);
}

}  // namespace brenloft
