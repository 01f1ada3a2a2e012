#include "tools/brenloft/DocumentFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/brenloft/ContainerFiles.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

constexpr std::size_t kWriteSize = 65'536;
constexpr std::filesystem::perms kPermissionsOfNewFiles{0666};

std::error_code lastError() {
  return {errno, std::generic_category()};
}

}  // namespace

DocumentFile::DocumentFile(std::string path) : path_(std::move(path)) {
  struct stat old {};
  const bool exists = ::stat(path_.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) fail(lastError());
  if (exists && !S_ISREG(old.st_mode)) {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0) fail(lastError());
    return;
  }
  // A folder lets its files be replaced whether they may be written or not.
  if (exists && ::access(path_.c_str(), W_OK) != 0) fail(lastError());
  std::error_code error;
  replacement_ = platform::ReplacementFile::create(behindLinks(path_), kPermissionsOfNewFiles, error);
  if (error) fail(error);
}

DocumentFile::~DocumentFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void DocumentFile::write(std::string_view text) {
  pending_ += text;
  if (pending_.size() >= kWriteSize) flush();
}

void DocumentFile::flush() {
  const std::error_code error =
      replacement_ ? replacement_->write(pending_) : platform::writeAll(descriptor_, pending_);
  if (error) fail(error);
  pending_.clear();
}

void DocumentFile::finish() {
  flush();
  if (replacement_) {
    if (const std::error_code error = replacement_->finish()) fail(error);
  } else if (::close(std::exchange(descriptor_, -1)) != 0) {
    fail(lastError());
  }
}

void DocumentFile::fail(std::error_code error) const {
  throw Failure(ExitStatus::failed, path_ + ": " + error.message());
}

}  // namespace brenloft
