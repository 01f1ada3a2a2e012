#pragma once

#include <filesystem>
#include <optional>

namespace brenloft::history {

/// Proof that this is the history's one writer, as long as it lives. The kernel takes it from a process that
/// is killed. A file of its own holds it: closing one of the database's would drop SQLite's locks.
class WriterLock {
 public:
  /// Throws platform::SQLiteFailure, one that is busy when another process has it.
  WriterLock(const std::filesystem::path& history, bool isOwnerOnly);
  ~WriterLock();
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  /// Whether anybody has it, without taking it; nothing where that cannot be told.
  static std::optional<bool> isHeld(const std::filesystem::path& history);

 private:
  int descriptor_ = -1;
};

}  // namespace brenloft::history
