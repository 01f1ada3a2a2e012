#include "gateway/history/WriterLock.h"

#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include "platform/coredata/SQLiteDatabase.h"

namespace brenloft::history {
namespace {

std::filesystem::path lockFileOf(const std::filesystem::path& history) {
  return history.string() + "-lock";
}

// It belongs to the open file, as one of flock(2) does; but it can be asked for without being taken, so that
// who looks is in no writer's way.
struct flock wholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

[[noreturn]] void failLock(const std::filesystem::path& file) {
  const int code = errno == ENOSPC ? SQLITE_FULL : errno == EACCES || errno == EROFS ? SQLITE_READONLY : 0;
  throw platform::SQLiteFailure(code,
                                file.filename().string() + ": " + std::generic_category().message(errno));
}

std::string holderOf(int descriptor) {
  std::array<char, 20> text{};
  const ssize_t size = ::pread(descriptor, text.data(), text.size(), 0);
  const std::string holder(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  const bool isNumber = !holder.empty() && holder.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? "process " + holder : "another process";
}

}  // namespace

WriterLock::WriterLock(const std::filesystem::path& history, bool isOwnerOnly) {
  const std::filesystem::path file = lockFileOf(history);
  descriptor_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, isOwnerOnly ? 0600 : 0666);
  if (descriptor_ < 0) failLock(file);
  struct flock lock = wholeFile(F_WRLCK);
  if (::fcntl(descriptor_, F_OFD_SETLK, &lock) == 0) {
    // For people only, so a full disk is no reason to fail.
    const std::string self = std::to_string(::getpid());
    if (::ftruncate(descriptor_, 0) != 0 || ::pwrite(descriptor_, self.data(), self.size(), 0) < 0) return;
    return;
  }
  const std::string holder = holderOf(descriptor_);
  ::close(descriptor_);
  throw platform::SQLiteFailure(SQLITE_BUSY, holder + " writes it");
}

WriterLock::~WriterLock() {
  ::close(descriptor_);
}

std::optional<bool> WriterLock::isHeld(const std::filesystem::path& history) {
  const int descriptor = ::open(lockFileOf(history).c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return errno == ENOENT ? std::optional(false) : std::nullopt;
  struct flock lock = wholeFile(F_RDLCK);
  const bool isKnown = ::fcntl(descriptor, F_OFD_GETLK, &lock) == 0;
  ::close(descriptor);
  return isKnown ? std::optional(lock.l_type != F_UNLCK) : std::nullopt;
}

}  // namespace brenloft::history
