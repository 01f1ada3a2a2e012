#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSUUID.h"

namespace platform {

/// A Bluetooth UUID of 16, 32 or 128 bits (Bluetooth Core, Vol 3, Part B, 2.5.1). UUIDs that mean the same
/// number are equal, whatever the width in which they came.
class BRL_EXPORT CBUUID {
 public:
  constexpr CBUUID() = default;
  explicit CBUUID(const NSUUID& uuid) : uuid_(uuid) {}
  /// On the Bluetooth base UUID.
  static CBUUID fromShort(uint32_t value);
  /// The 2, 4 or 16 octets of a packet, least significant first; other lengths are nothing.
  static std::optional<CBUUID> fromPacket(DataView octets);

  /// Accepts 4 or 8 hexadecimal digits or the hyphenated 36-character form, in either case.
  static std::optional<CBUUID> UUIDWithString(std::string_view text);

  /// Upper case: 4 digits, or 8 when the value needs them, for a UUID on the Bluetooth base UUID; else the
  /// 36-character form.
  std::string UUIDString() const;

  /// The number on the Bluetooth base UUID; nothing for other UUIDs.
  std::optional<uint32_t> shortValue() const;
  const NSUUID& uuid128() const { return uuid_; }
  // The check takes the zero inside the compiler's comparison for a pointer.
  friend auto operator<=>(const CBUUID&, const CBUUID&) = default;  // NOLINT(modernize-use-nullptr)

 private:
  NSUUID uuid_;
};

}  // namespace platform
