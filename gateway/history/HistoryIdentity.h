#pragma once

#include <filesystem>

#include <sys/stat.h>

namespace brenloft {

/// Which file a history is, whatever its name: another one may be put in its place.
struct HistoryIdentity {
  dev_t device{};
  ino_t number{};

  /// All zero where there is none.
  static HistoryIdentity of(const std::filesystem::path& file) {
    struct stat about {};
    if (::stat(file.c_str(), &about) != 0) return {};
    return {about.st_dev, about.st_ino};
  }
  friend bool operator==(const HistoryIdentity&, const HistoryIdentity&) = default;
};

}  // namespace brenloft
