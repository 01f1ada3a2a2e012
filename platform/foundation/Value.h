#pragma once

#include <concepts>
#include <map>
#include <string>
#include <type_traits>
#include <variant>

#include "platform/foundation/Data.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Export.h"

namespace platform {

/// The null marker: an explicitly empty value, unlike an absent key.
struct NSNull {
  friend bool operator==(NSNull, NSNull) = default;
};

/// A number that remembers the signedness and width it was made with.
class BRL_EXPORT NSNumber {
 public:
  using Storage = std::variant<bool, int32_t, uint32_t, int64_t, uint64_t, double>;

  template <typename T>
  requires std::is_arithmetic_v<T>
  constexpr explicit NSNumber(T value) : storage_(widen(value)) {}

  /// The value as a 32-bit signed integer: a fraction is dropped, wider integers keep their low 32 bits,
  /// floating-point values beyond the range stop at its ends (NaN is 0).
  int32_t intValue() const;
  /// The same at 64 bits.
  int64_t integerValue() const;
  uint64_t unsignedIntegerValue() const;
  double doubleValue() const;
  bool boolValue() const;

  const Storage& storage() const { return storage_; }
  friend bool operator==(const NSNumber&, const NSNumber&) = default;

 private:
  template <typename T>
  static constexpr Storage widen(T value) {
    if constexpr (std::same_as<T, bool>)
      return value;
    else if constexpr (std::floating_point<T>)
      return static_cast<double>(value);
    else if constexpr (std::is_signed_v<T>) {
      if constexpr (sizeof(T) <= 4)
        return static_cast<int32_t>(value);
      else
        return static_cast<int64_t>(value);
    } else if constexpr (sizeof(T) <= 4)
      return static_cast<uint32_t>(value);
    else
      return static_cast<uint64_t>(value);
  }

  Storage storage_;
};

/// What a dictionary holds under a key: the null marker, a number, a text, a date or octets.
using Value = std::variant<NSNull, NSNumber, std::string, Date, Data>;

/// Key texts to values; an absent key and a null marker stay apart.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// The value under a key when it is present and of that kind, else nothing.
template <typename Kind>
const Kind* find(const Dictionary& dictionary, std::string_view key) {
  auto it = dictionary.find(key);
  return it == dictionary.end() ? nullptr : std::get_if<Kind>(&it->second);
}

}  // namespace platform
