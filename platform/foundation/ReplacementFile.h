#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/foundation/WriteAll.h"

namespace platform {

/// What is to take the place of a file, or of none: until `finish` the name stands for what it was,
/// afterwards for the whole new content. A file that is replaced leaves its permissions, without set-id bits;
/// a new one gets the given ones, as far as the umask lets it. A symbolic link is replaced itself.
///
/// Meanwhile the content is in a file beside it: ".brenloft-" and six characters that nobody can foresee. One
/// that a killed process left behind is removed when the next is made in that folder: it is not locked.
///
/// Threads: one at a time.
class ReplacementFile {
 public:
  /// Nothing, and why, when no file can be made there.
  static std::unique_ptr<ReplacementFile> create(std::filesystem::path target,
                                                 std::filesystem::perms permissionsOfNewFile,
                                                 std::error_code& error);
  /// Without `finish` nothing stays behind.
  ~ReplacementFile();
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  std::error_code write(std::string_view text) { return writeAll(descriptor_, text); }
  /// Returns once content and name are in storage.
  std::error_code finish();

 private:
  explicit ReplacementFile(std::filesystem::path target) : target_(std::move(target)) {}
  std::error_code open(std::filesystem::perms permissions);

  const std::filesystem::path target_;
  std::optional<std::filesystem::perms> permissions_;  // of the file that is replaced
  std::string beside_;                                 // empty when nothing is there
  int descriptor_ = -1;
};

}  // namespace platform
