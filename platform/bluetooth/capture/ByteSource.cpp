#include "platform/bluetooth/capture/ByteSource.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/bluetooth/capture/StopDescriptor.h"
#include "platform/foundation/ErrorNumber.h"

namespace platform {
namespace {

std::string textOfErrno(int code) {
  return std::generic_category().message(code);
}

class FileByteSource : public ByteSource {
 public:
  /// Takes the descriptor over.
  FileByteSource(int descriptor, std::unique_ptr<StopDescriptor> stop)
      : descriptor_(descriptor), stop_(std::move(stop)) {
    struct stat status {};
    if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode))
      size_ = static_cast<uint64_t>(status.st_size);
  }
  ~FileByteSource() override { close(descriptor_); }

  std::size_t read(std::span<std::byte> octets) override {
    while (error_.empty() && wait()) {
      const ssize_t count = ::read(descriptor_, octets.data(), octets.size());
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR && errno != EAGAIN) error_ = textOfErrno(errno);
    }
    return 0;
  }
  std::string error() const override { return error_; }
  bool isStopped() const override { return isStopped_; }
  std::optional<uint64_t> size() const override { return size_; }

 private:
  /// False after a stop. Without waiting, a named pipe that nobody writes to yet would read as empty.
  bool wait() {
    std::array<pollfd, 2> polled{{{descriptor_, POLLIN, 0}, {stop_->get(), POLLIN, 0}}};
    while (poll(polled.data(), polled.size(), -1) < 0 && errno == EINTR) {
    }
    isStopped_ = polled[1].revents != 0;
    return !isStopped_;
  }

  int descriptor_;
  std::unique_ptr<StopDescriptor> stop_;
  std::optional<uint64_t> size_;
  std::string error_;
  bool isStopped_ = false;
};

}  // namespace

Result<std::unique_ptr<ByteSource>> openFileSource(const std::string& path, std::stop_token stop) {
  // Not blocking: the opening of a named pipe would wait for a writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  auto stopped = descriptor < 0 ? nullptr : std::make_unique<StopDescriptor>(std::move(stop));
  if (stopped && stopped->get() >= 0) return std::make_unique<FileByteSource>(descriptor, std::move(stopped));
  Error error{kindOfErrorNumber(errno), textOfErrno(errno)};
  if (descriptor >= 0) close(descriptor);
  return error;
}

std::size_t MemoryByteSource::read(std::span<std::byte> octets) {
  const std::size_t count = std::min(octets.size(), rest_.size());
  std::copy_n(rest_.begin(), count, octets.begin());
  rest_ = rest_.subspan(count);
  return count;
}

}  // namespace platform
