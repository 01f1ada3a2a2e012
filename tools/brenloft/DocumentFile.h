#pragma once

#include <string>
#include <string_view>

namespace brenloft {

/// The file that a document is written to. A regular file, old or new, gets the whole document at the end in
/// one step, with the mode that it had, behind symbolic links; until then, and after a failure, it is what it
/// was. Anything else (a FIFO, a device) is written as it is.
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
  [[noreturn]] void fail(int code) const;
  void prepareReplacement();
  void flush();

  const std::string path_;
  std::string target_;   // what is to be replaced; empty when there is nothing to replace
  std::string partial_;  // stands beside the target until `finish`
  unsigned mode_ = 0;    // that the target is to have
  int descriptor_ = -1;
  std::string pending_;
};

}  // namespace brenloft
