#pragma once

#include <cstdint>
#include <filesystem>

namespace platform {

/// Which file has a name, and when it was written last; all 0 where there is none.
struct FileStamp {
  uint64_t device = 0;
  uint64_t number = 0;
  uint64_t size = 0;
  int64_t seconds = 0;
  int64_t nanoseconds = 0;

  static FileStamp of(const std::filesystem::path& file);
  bool operator==(const FileStamp&) const = default;
};

/// A store file and its log. As long as both stamps stay, nobody has written.
struct StoreStamp {
  FileStamp file;
  FileStamp log;

  bool operator==(const StoreStamp&) const = default;
};

}  // namespace platform
