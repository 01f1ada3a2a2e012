#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/foundation/Data.h"

namespace platform::wire {

// Numbers in wire formats. The caller has checked that the octets are there.

inline uint8_t octet(DataView octets, std::size_t at) {
  return std::to_integer<uint8_t>(octets[at]);
}

inline uint64_t littleEndian(DataView octets, std::size_t at, std::size_t width) {
  uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | octet(octets, at + i);
  return value;
}

inline uint64_t bigEndian(DataView octets, std::size_t at, std::size_t width) {
  uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | octet(octets, at + i);
  return value;
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
