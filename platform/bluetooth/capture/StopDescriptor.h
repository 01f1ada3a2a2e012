#pragma once

#include <optional>
#include <stop_token>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace platform {

/// A stop that `poll` can wait for: readable once the stop is requested, on any thread.
class StopDescriptor {
 public:
  explicit StopDescriptor(std::stop_token stop) : descriptor_(eventfd(0, EFD_CLOEXEC)) {
    onStop_.emplace(std::move(stop), Tell{descriptor_});
  }
  ~StopDescriptor() {
    onStop_.reset();  // may be telling on another thread
    close(descriptor_);
  }
  StopDescriptor(const StopDescriptor&) = delete;
  StopDescriptor& operator=(const StopDescriptor&) = delete;

  /// Negative, with the reason in errno, when there is none left.
  int get() const { return descriptor_; }

 private:
  struct Tell {
    int descriptor;
    void operator()() const { eventfd_write(descriptor, 1); }
  };

  int descriptor_;
  std::optional<std::stop_callback<Tell>> onStop_;
};

}  // namespace platform
