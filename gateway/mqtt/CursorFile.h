#pragma once

#include <filesystem>

#include "gateway/mqtt/Outbox.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// Where a publisher keeps how far the broker has taken the history: a small file of its own, because the
/// process with a network only reads the history. It is replaced as a whole.
///
/// Threads: one at a time.
class CursorFile {
 public:
  explicit CursorFile(std::filesystem::path file) : file_(std::move(file)) {}

  /// `absent` where there is none.
  platform::Result<Cursor> read() const;
  platform::Result<> write(const Cursor& cursor) const;

  const std::filesystem::path& path() const { return file_; }

 private:
  const std::filesystem::path file_;
};

}  // namespace brenloft
