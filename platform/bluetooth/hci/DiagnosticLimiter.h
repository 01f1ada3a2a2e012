#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "platform/dispatch/Dispatch.h"

namespace platform::hci {

/// Passes on a few lines at once and five a minute in the long run, and says how many were left out.
/// Threads: one at a time.
class DiagnosticLimiter {
 public:
  static constexpr int kBurst = 10;
  static constexpr dispatch_time_t kInterval = std::chrono::seconds(12);

  DiagnosticLimiter(DispatchService& dispatch, std::function<void(std::string_view)> sink);
  void log(std::string line);

 private:
  DispatchService& dispatch_;
  std::function<void(std::string_view)> sink_;
  int allowance_ = kBurst;
  dispatch_time_t refilled_;
  uint64_t leftOut_ = 0;
};

}  // namespace platform::hci
