#include "platform/bluetooth/capture/FileSink.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/ErrorNumber.h"

namespace platform {
namespace {

// Milliseconds: between two looks whether a pipe has a reader, and how long that one may stall after a stop.
constexpr int kRetry = 100;
constexpr int kPatience = 1000;
constexpr int kForever = -1;

bool isReady(int descriptor, short events, int milliseconds) {
  pollfd polled{descriptor, events, 0};
  int count = 0;
  while ((count = poll(&polled, 1, milliseconds)) < 0 && errno == EINTR) {
  }
  return count > 0;
}

bool isPipe(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

Result<std::unique_ptr<FileSink>> FileSink::open(const std::string& path, std::stop_token stop) {
  std::unique_ptr<FileSink> sink(new FileSink(path, std::move(stop)));
  sink->openToWrite();
  if (sink->descriptor_ < 0) {
    if (errno != 0) return sink->failure(errno);
    return std::unique_ptr<FileSink>();
  }
  if (isatty(sink->descriptor_) != 1) return sink;
  return Error{.text = fmt::format("{}: a terminal shows no capture", path)};
}

FileSink::~FileSink() {
  if (descriptor_ >= 0) close(descriptor_);
}

// Not blocking: neither the wait for a pipe's reader nor that for one who stalls could be given up.
void FileSink::openToWrite() {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  while (stop_.get() >= 0) {
    descriptor_ = ::open(path_.c_str(), kFlags, 0666);
    if (descriptor_ >= 0 || errno != ENXIO || !isPipe(path_)) return;
    if (!isReady(stop_.get(), POLLIN, kRetry)) continue;
    errno = 0;
    return;
  }
}

Result<> FileSink::write(DataView octets) {
  while (!octets.empty()) {
    const ssize_t count = ::write(descriptor_, octets.data(), octets.size());
    if (count >= 0)
      octets = octets.subspan(static_cast<std::size_t>(count));
    else if (errno == EAGAIN && !awaitReader())
      return failure(Error::Kind::failed, "its reader has stalled");
    else if (errno != EAGAIN && errno != EINTR)
      return failure(errno);
  }
  return {};
}

bool FileSink::awaitReader() const {
  std::array<pollfd, 2> polled{{{descriptor_, POLLOUT, 0}, {stop_.get(), POLLIN, 0}}};
  while (poll(polled.data(), polled.size(), kForever) < 0 && errno == EINTR) {
  }
  return polled[1].revents == 0 || isReady(descriptor_, POLLOUT, kPatience);
}

Error FileSink::failure(int errorNumber) const {
  return failure(kindOfErrorNumber(errorNumber), std::generic_category().message(errorNumber));
}

Error FileSink::failure(Error::Kind kind, const std::string& reason) const {
  return {kind, fmt::format("{}: cannot be written: {}", path_, reason)};
}

}  // namespace platform
