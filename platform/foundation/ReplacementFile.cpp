#include "platform/foundation/ReplacementFile.h"

#include <cerrno>
#include <cstdio>
#include <optional>
#include <random>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/Folders.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = ".brenloft-";
constexpr std::size_t kRandomCharacters = 6;

std::error_code lastError() {
  return {errno, std::generic_category()};
}

std::optional<fs::perms> permissionsOf(const fs::path& file) {
  std::error_code none;
  const auto status = fs::symlink_status(file, none);
  return fs::is_regular_file(status) ? std::optional(status.permissions() & fs::perms::all) : std::nullopt;
}

std::string unforeseeableName() {
  constexpr std::string_view kCharacters = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::uniform_int_distribution<std::size_t> choice(0, kCharacters.size() - 1);
  std::string name(kPrefix);
  for (std::size_t i = 0; i < kRandomCharacters; ++i) name += kCharacters[choice(random)];
  return name;
}

// Who writes one holds its lock, so that what can be locked has lost its writer.
void removeLeftBehind(const fs::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return;
  struct stat status {};
  const bool isOurs =
      ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
  if (isOurs && ::flock(descriptor, LOCK_EX | LOCK_NB) == 0) ::unlink(file.c_str());
  ::close(descriptor);
}

void removeWhatWasLeftIn(const fs::path& folder) {
  std::error_code unreadable;
  for (fs::directory_iterator entry(folder, unreadable), end; !unreadable && entry != end;
       entry.increment(unreadable)) {
    const std::string name = entry->path().filename().string();
    if (name.starts_with(kPrefix) && name.size() == kPrefix.size() + kRandomCharacters)
      removeLeftBehind(entry->path());
  }
}

}  // namespace

std::unique_ptr<ReplacementFile> ReplacementFile::create(fs::path target, fs::perms permissionsOfNewFile,
                                                         std::error_code& error) {
  std::unique_ptr<ReplacementFile> file(new ReplacementFile(std::move(target)));
  removeWhatWasLeftIn(folderOf(file->target_));
  file->permissions_ = permissionsOf(file->target_);
  error = file->open(file->permissions_ ? fs::perms(0600) : permissionsOfNewFile);
  return error ? nullptr : std::move(file);
}

std::error_code ReplacementFile::open(fs::perms permissions) {
  struct stat status {};
  do {
    if (descriptor_ >= 0) ::close(descriptor_);
    const std::string beside = (folderOf(target_) / unforeseeableName()).string();
    descriptor_ = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                         static_cast<mode_t>(permissions));
    if (descriptor_ < 0 && errno == EEXIST) continue;
    if (descriptor_ < 0) return lastError();
    beside_ = beside;
    // Until it is locked, another process may take it for left behind.
    while (::flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
    }
  } while (descriptor_ < 0 || (::fstat(descriptor_, &status) == 0 && status.st_nlink == 0));
  return {};
}

ReplacementFile::~ReplacementFile() {
  if (!beside_.empty()) ::unlink(beside_.c_str());
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::error_code ReplacementFile::finish() {
  if (::fsync(descriptor_) != 0) return lastError();
  if (permissions_ && ::fchmod(descriptor_, static_cast<mode_t>(*permissions_)) != 0) return lastError();
  if (std::rename(beside_.c_str(), target_.c_str()) != 0) return lastError();
  beside_.clear();
  return flushFolder(folderOf(target_));
}

}  // namespace platform
