#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/foundation/Data.h"

namespace platform::wire {

// Numbers in wire formats. The caller has checked that the octets are there.

inline uint8_t octet(DataView octets, std::size_t at) {
  return std::to_integer<uint8_t>(octets[at]);
}

/// As they lie in memory, with zeros behind them. One load where `width` is known when this is compiled.
inline uint64_t loaded(DataView octets, std::size_t at, std::size_t width) {
  uint64_t value = 0;
  std::memcpy(&value, octets.subspan(at, width).data(), width);
  return value;
}

inline uint64_t littleEndian(DataView octets, std::size_t at, std::size_t width) {
  const uint64_t value = loaded(octets, at, width);
  return std::endian::native == std::endian::little ? value : __builtin_bswap64(value);
}

/// Of 1 to 8 octets.
inline uint64_t bigEndian(DataView octets, std::size_t at, std::size_t width) {
  const uint64_t value = loaded(octets, at, width);
  return (std::endian::native == std::endian::big ? value : __builtin_bswap64(value)) >> (64 - 8 * width);
}

/// Reads a file's numbers in the order of octets that its writer chose.
struct FileOrder {
  bool isBigEndian = false;

  uint64_t number(DataView octets, std::size_t at, std::size_t width) const {
    return isBigEndian ? bigEndian(octets, at, width) : littleEndian(octets, at, width);
  }
  uint16_t u16(DataView octets, std::size_t at) const { return static_cast<uint16_t>(number(octets, at, 2)); }
  uint32_t u32(DataView octets, std::size_t at) const { return static_cast<uint32_t>(number(octets, at, 4)); }
};

}  // namespace platform::wire
