#include "platform/bluetooth/hci/DiagnosticLimiter.h"

#include <algorithm>
#include <utility>

namespace platform::hci {

DiagnosticLimiter::DiagnosticLimiter(DispatchService& dispatch, std::function<void(std::string_view)> sink)
    : dispatch_(dispatch), sink_(std::move(sink)), refilled_(dispatch.now()) {}

void DiagnosticLimiter::log(std::string line) {
  if (!sink_) return;
  const auto earned = (dispatch_.now() - refilled_) / kInterval;
  allowance_ = static_cast<int>(std::min<int64_t>(kBurst, allowance_ + earned));
  refilled_ += earned * kInterval;
  if (allowance_ == 0) {
    ++leftOut_;
    return;
  }
  --allowance_;
  if (leftOut_ > 0)
    line += " (and " + std::to_string(std::exchange(leftOut_, 0)) + " lines before it were left out)";
  sink_(line);
}

}  // namespace platform::hci
