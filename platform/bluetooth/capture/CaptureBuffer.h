#pragma once

#include <cstdint>
#include <memory>

#include "platform/bluetooth/capture/ByteSource.h"

namespace platform {

/// A window on a byte source that moves forward, filled in large reads. Its memory does not grow.
class CaptureBuffer {
 public:
  static constexpr std::size_t kCapacity = 1U << 18U;

  explicit CaptureBuffer(std::unique_ptr<ByteSource> source);

  /// The next `count` octets (at most `kCapacity`), or as many as are left. They are lent until the next call
  /// of `peek` or `skip`.
  DataView peek(std::size_t count);
  /// Passes over octets that `peek` has shown.
  void drop(std::size_t count) { begin_ += count; }
  /// Passes over any octets and returns how many there were.
  uint64_t skip(uint64_t count);

  /// Octets passed over so far.
  uint64_t position() const { return filled_ - (end_ - begin_); }
  const ByteSource& source() const { return *source_; }

 private:
  bool fill();

  std::unique_ptr<ByteSource> source_;
  Data octets_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  uint64_t filled_ = 0;
};

}  // namespace platform
