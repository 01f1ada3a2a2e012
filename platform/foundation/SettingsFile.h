#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/foundation/FolderAccess.h"
#include "platform/foundation/Value.h"

namespace platform {

/// A dictionary in a JSON file. Null, booleans, texts, 64-bit integers and finite doubles are plain JSON;
/// every other value is an object whose one key names its kind: int32, uint32, uint64, double ("inf", "-inf",
/// "nan"), date (microseconds since 1970) and data (hexadecimal). What fits none of these is skipped when
/// read.

struct StoredSettings {
  Dictionary values;
  /// Why the file's values are not known: it cannot be read, or holds no JSON object. Empty when there is no
  /// file.
  std::string problem;
};

StoredSettings readSettings(const std::filesystem::path& file);

/// Replaces the file as a whole and keeps its permissions; returns once it is in storage. Call with the lock.
std::error_code writeSettings(const std::filesystem::path& file, const Dictionary& settings,
                              FolderAccess access);

/// Keeps other processes from changing settings in the same folder, as far as its file system knows locks.
/// Makes the folder where it is missing.
class SettingsLock {
 public:
  SettingsLock(const std::filesystem::path& file, FolderAccess access);
  ~SettingsLock();
  SettingsLock(const SettingsLock&) = delete;
  SettingsLock& operator=(const SettingsLock&) = delete;

 private:
  int folder_ = -1;
};

}  // namespace platform
