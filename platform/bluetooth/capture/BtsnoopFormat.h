#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform::btsnoop {

// Version 1 of the file format: a snoop file (RFC 1761) with Bluetooth data links. All numbers are
// big-endian.

inline constexpr std::string_view kMagic{"btsnoop\0", 8};
inline constexpr std::size_t kFileHeader = 16;    ///< magic, version, data link
inline constexpr std::size_t kRecordHeader = 24;  ///< original and included length, flags, drops, time
inline constexpr uint32_t kVersion = 1;

inline constexpr uint32_t kLinkH1 = 1001;
inline constexpr uint32_t kLinkH4 = 1002;
inline constexpr uint32_t kLinkMonitor = 2001;

/// Times are microseconds since the beginning of the year 0; this is 1970-01-01T00:00:00Z.
inline constexpr uint64_t kEpoch = 0x00DCDDB30F2F8000;

}  // namespace platform::btsnoop
