#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"

namespace platform {

/// A 128-bit UUID (RFC 4122), octets in the order of the text.
class BRL_EXPORT NSUUID {
 public:
  using Octets = std::array<uint8_t, 16>;

  constexpr NSUUID() = default;
  constexpr explicit NSUUID(const Octets& octets) : octets_(octets) {}

  /// Accepts the hyphenated 36-character form only, in either case; anything else is nothing.
  static std::optional<NSUUID> initWithUUIDString(std::string_view text);

  /// The canonical upper-case hyphenated text.
  std::string UUIDString() const;

  const Octets& octets() const { return octets_; }
  friend auto operator<=>(const NSUUID&, const NSUUID&) = default;

 private:
  Octets octets_{};
};

}  // namespace platform
