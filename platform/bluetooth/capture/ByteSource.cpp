#include "platform/bluetooth/capture/ByteSource.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

std::string textOfErrno(int code) {
  return std::generic_category().message(code);
}

class FileByteSource : public ByteSource {
 public:
  explicit FileByteSource(int descriptor) : descriptor_(descriptor) {
    struct stat status {};
    if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode))
      size_ = static_cast<uint64_t>(status.st_size);
  }
  ~FileByteSource() override { close(descriptor_); }

  std::size_t read(std::span<std::byte> octets) override {
    ssize_t count = 0;
    do {
      count = ::read(descriptor_, octets.data(), octets.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) error_ = textOfErrno(errno);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  std::string error() const override { return error_; }
  std::optional<uint64_t> size() const override { return size_; }

 private:
  int descriptor_;
  std::optional<uint64_t> size_;
  std::string error_;
};

}  // namespace

std::unique_ptr<ByteSource> openFileSource(const std::string& path, std::string& error) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    error = textOfErrno(errno);
    return nullptr;
  }
  return std::make_unique<FileByteSource>(descriptor);
}

std::size_t MemoryByteSource::read(std::span<std::byte> octets) {
  const std::size_t count = std::min(octets.size(), rest_.size());
  std::copy_n(rest_.begin(), count, octets.begin());
  rest_ = rest_.subspan(count);
  return count;
}

}  // namespace platform
