#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/foundation/ReplacementFile.h"

namespace brenloft {

/// The file that a document is written to. A regular file, old or new, gets the whole document at the end in
/// one step, with the permissions that it had, behind symbolic links; until then, and after a failure, it is
/// what it was. Anything else (a FIFO, a device) is written as it is.
///
/// Every operation throws `Failure` with `FILE: reason`. Threads: one at a time.
class DocumentFile {
 public:
  explicit DocumentFile(std::string path);
  /// Without `finish` nothing stays behind.
  ~DocumentFile();
  DocumentFile(const DocumentFile&) = delete;
  DocumentFile& operator=(const DocumentFile&) = delete;

  void write(std::string_view text);
  void finish();

 private:
  [[noreturn]] void fail(std::error_code error) const;
  void flush();

  const std::string path_;
  std::unique_ptr<platform::ReplacementFile> replacement_;
  int descriptor_ = -1;  // of what cannot be replaced
  std::string pending_;
};

}  // namespace brenloft
