#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include "platform/foundation/Data.h"
#include "platform/foundation/Error.h"

namespace platform {

/// Where the octets of a capture come from. Threads: one at a time.
class ByteSource {
 public:
  virtual ~ByteSource() = default;

  /// Fills the front of `octets` and returns how many there were; 0 at the end or after an error.
  virtual std::size_t read(std::span<std::byte> octets) = 0;
  /// What ended the reading before the end, for people; empty when nothing did.
  virtual std::string error() const { return {}; }
  /// Whether a stop ended the reading: what is missing then is no fault.
  virtual bool isStopped() const { return false; }
  /// Octets in all, when that is known beforehand.
  virtual std::optional<uint64_t> size() const { return std::nullopt; }
};

/// A file, a pipe or a device. Reading waits for octets, and for somebody to write into a named pipe, until
/// `stop` is requested; that may be done on any thread.
Result<std::unique_ptr<ByteSource>> openFileSource(const std::string& path, std::stop_token stop = {});

/// Octets in memory, which must outlive the source.
class MemoryByteSource : public ByteSource {
 public:
  explicit MemoryByteSource(DataView octets) : rest_(octets), size_(octets.size()) {}

  std::size_t read(std::span<std::byte> octets) override;
  std::optional<uint64_t> size() const override { return size_; }

 private:
  DataView rest_;
  std::size_t size_;
};

}  // namespace platform
