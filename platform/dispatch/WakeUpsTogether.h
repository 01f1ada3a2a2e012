#pragma once

#include <memory>
#include <vector>

namespace platform {

class RealTimeQueue;

/// While one lives, what its thread submits to queues on real time is there at once but wakes nobody; its end
/// does, once for each queue. For whoever submits much in one go, and waits for none of it meanwhile.
class WakeUpsTogether {
 public:
  WakeUpsTogether();
  ~WakeUpsTogether();
  WakeUpsTogether(const WakeUpsTogether&) = delete;
  WakeUpsTogether& operator=(const WakeUpsTogether&) = delete;

  /// False when there is none on this thread, and the queue has to wake its sleeper itself.
  static bool hold(const std::shared_ptr<RealTimeQueue>& queue);

 private:
  WakeUpsTogether* const outer_;
  std::vector<std::shared_ptr<RealTimeQueue>> asleep_;
};

}  // namespace platform
