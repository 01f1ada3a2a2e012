#include "tools/brenloft/DocumentFile.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

constexpr std::size_t kWriteSize = 65'536;
constexpr mode_t kPermissions = 07777;

// Where the links end, whether something is there or not.
std::filesystem::path behindLinks(std::filesystem::path file) {
  std::error_code none;
  while (std::filesystem::is_symlink(file, none))
    file = file.parent_path() / std::filesystem::read_symlink(file, none);
  return file;
}

mode_t modeOfNewFiles() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

DocumentFile::DocumentFile(std::string path) : path_(std::move(path)) {
  struct stat old {};
  const bool exists = ::stat(path_.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) fail(errno);
  if (exists && !S_ISREG(old.st_mode)) {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0) fail(errno);
    return;
  }
  // A folder lets its files be replaced whether they may be written or not.
  if (exists && ::access(path_.c_str(), W_OK) != 0) fail(errno);
  mode_ = exists ? old.st_mode & kPermissions : modeOfNewFiles();
  prepareReplacement();
}

DocumentFile::~DocumentFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
  if (!partial_.empty()) ::unlink(partial_.c_str());
}

void DocumentFile::prepareReplacement() {
  const auto target = behindLinks(path_);
  target_ = target.string();
  std::string name = (target.parent_path() / ".brenloft-XXXXXX").string();
  descriptor_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (descriptor_ < 0) fail(errno);
  partial_ = std::move(name);
}

void DocumentFile::write(std::string_view text) {
  pending_ += text;
  if (pending_.size() >= kWriteSize) flush();
}

void DocumentFile::flush() {
  std::string_view rest = pending_;
  while (!rest.empty()) {
    const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
    if (written >= 0)
      rest.remove_prefix(static_cast<std::size_t>(written));
    else if (errno != EINTR)
      fail(errno);
  }
  pending_.clear();
}

void DocumentFile::finish() {
  flush();
  const bool replaces = !partial_.empty();
  // Whoever finds the new file after a power cut finds all of it.
  if (replaces && (::fchmod(descriptor_, mode_) != 0 || ::fsync(descriptor_) != 0)) fail(errno);
  if (::close(std::exchange(descriptor_, -1)) != 0) fail(errno);
  if (replaces && ::rename(partial_.c_str(), target_.c_str()) != 0) fail(errno);
  partial_.clear();
}

void DocumentFile::fail(int code) const {
  throw Failure(ExitStatus::failed, path_ + ": " + std::generic_category().message(code));
}

}  // namespace brenloft
