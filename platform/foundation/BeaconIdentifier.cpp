#include "platform/foundation/BeaconIdentifier.h"

#include <charconv>

#include "platform/foundation/Hex.h"
#include "platform/foundation/NSUUID.h"

namespace platform {
namespace {

std::optional<uint16_t> portionFrom(std::string_view text) {
  uint16_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<std::string> sensorIdentifierFrom(std::string_view typed) {
  constexpr std::size_t kLength = 17;
  constexpr std::size_t kStep = 3;
  if (typed.size() != kLength || (typed[2] != '-' && typed[2] != ':')) return std::nullopt;
  std::string text(kLength, '-');
  for (std::size_t i = 0; i < kLength; ++i) {
    if (i % kStep == 2) {
      if (typed[i] != typed[2]) return std::nullopt;
      continue;
    }
    const int digit = hexDigitValue(typed[i]);
    if (digit < 0) return std::nullopt;
    text[i] = kUpperHexDigits[static_cast<std::size_t>(digit)];
  }
  return text;
}

}  // namespace

std::optional<std::string> beaconIdentifierFrom(std::string_view typed) {
  const auto first = typed.find('/');
  if (first == std::string_view::npos) return sensorIdentifierFrom(typed);
  const auto second = typed.find('/', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  const auto uuid = NSUUID::initWithUUIDString(typed.substr(0, first));
  const auto major = portionFrom(typed.substr(first + 1, second - first - 1));
  const auto minor = portionFrom(typed.substr(second + 1));
  if (!uuid || !major || !minor) return std::nullopt;
  return iBeaconIdentifier(uuid->UUIDString(), *major, *minor);
}

std::string iBeaconIdentifier(std::string_view uuid, uint16_t major, uint16_t minor) {
  return std::string(uuid) + '/' + std::to_string(major) + '/' + std::to_string(minor);
}

}  // namespace platform
