#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::string_view kBlockedBySoftware =
    "blocked by software; 'rfkill unblock bluetooth' frees it";

/// Why rfkill keeps the adapter of this name ("hci0") from working, for people; empty when it does not. A
/// switch of the whole machine counts for every adapter. Looks below `root`/sys/class/rfkill.
std::string_view rfkillBlockOf(const std::string& adapter, const std::filesystem::path& root = "/");

}  // namespace platform
